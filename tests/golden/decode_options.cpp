#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/pkt_cls.h>
#include <linux/pkt_sched.h>

#include <map>

#include "tests/golden/decode.h"

// The attributes of each kind of qdisc, class and classifier.
namespace golden {
namespace {

std::string number(std::string_view payload) {
  return std::to_string(value_of<std::uint32_t>(payload));
}

std::string length(std::string_view payload) { return std::to_string(payload.size()) + " bytes"; }

void decode_htb_class(std::string_view payload, const Text& text) {
  const auto values = value_of<tc_htb_opt>(payload);
  text.line("rate " + std::to_string(values.rate.rate) + " bytes/s");
  text.line("ceil " + std::to_string(values.ceil.rate) + " bytes/s");
  text.line("buffer " + std::to_string(values.buffer) + " ticks");
  text.line("cbuffer " + std::to_string(values.cbuffer) + " ticks");
  text.line("quantum " + std::to_string(values.quantum) + " level " + std::to_string(values.level) +
            " prio " + std::to_string(values.prio));
}

void decode_htb_root(std::string_view payload, const Text& text) {
  const auto values = value_of<tc_htb_glob>(payload);
  text.line("version " + std::to_string(values.version) + " rate2quantum " +
            std::to_string(values.rate2quantum));
  text.line("default class " + std::to_string(values.defcls));
}

void decode_htb(std::string_view options, const Text& text) {
  for (const Attribute& a : attributes_by_number(options)) {
    if (a.number == TCA_HTB_PARMS) {
      text.line("TCA_HTB_PARMS");
      decode_htb_class(a.payload, text.deeper());
    } else if (a.number == TCA_HTB_INIT) {
      text.line("TCA_HTB_INIT");
      decode_htb_root(a.payload, text.deeper());
    } else if (a.number == TCA_HTB_CTAB) {
      text.line("TCA_HTB_CTAB " + length(a.payload));
    } else if (a.number == TCA_HTB_RTAB) {
      text.line("TCA_HTB_RTAB " + length(a.payload));
    } else {
      unknown(text, a);
    }
  }
}

void decode_pfifo(std::string_view options, const Text& text) {
  text.line("limit " + std::to_string(value_of<tc_fifo_qopt>(options).limit));
}

void decode_sfq(std::string_view options, const Text& text) {
  const auto values = value_of<tc_sfq_qopt>(options);
  text.line("quantum " + std::to_string(values.quantum) + " perturb " +
            std::to_string(values.perturb_period));
  text.line("limit " + std::to_string(values.limit));
  text.line("divisor " + std::to_string(values.divisor) + " flows " + std::to_string(values.flows));
}

void decode_fq_codel(std::string_view options, const Text& text) {
  static const std::map<int, std::string> names = {{TCA_FQ_CODEL_TARGET, "TCA_FQ_CODEL_TARGET"},
                                                   {TCA_FQ_CODEL_LIMIT, "TCA_FQ_CODEL_LIMIT"},
                                                   {TCA_FQ_CODEL_INTERVAL, "TCA_FQ_CODEL_INTERVAL"},
                                                   {TCA_FQ_CODEL_ECN, "TCA_FQ_CODEL_ECN"},
                                                   {TCA_FQ_CODEL_FLOWS, "TCA_FQ_CODEL_FLOWS"},
                                                   {TCA_FQ_CODEL_QUANTUM, "TCA_FQ_CODEL_QUANTUM"}};
  for (const Attribute& a : attributes_by_number(options)) {
    const auto name = names.find(a.number);
    if (name == names.end()) {
      unknown(text, a);
    } else {
      text.line(name->second + " " + number(a.payload));
    }
  }
}

std::string selector_flags(unsigned flags) {
  return flags == TC_U32_TERMINAL ? "TERMINAL" : std::to_string(flags);
}

// Masks and values of a selector are in network order, offsets in host order.
void decode_selector(std::string_view payload, const Text& text) {
  const auto selector = value_of<tc_u32_sel>(payload);
  text.line("flags " + selector_flags(selector.flags));
  text.line("hash mask " + hex(ntohl(selector.hmask)) + " at " + std::to_string(selector.hoff));
  for (unsigned i = 0; i < selector.nkeys; ++i) {
    const auto key =
        value_of<tc_u32_key>(payload.substr(sizeof(tc_u32_sel) + i * sizeof(tc_u32_key)));
    text.line("key " + hex(ntohl(key.val)) + "/" + hex(ntohl(key.mask)) + " at " +
              std::to_string(key.off) + " offmask " + std::to_string(key.offmask));
  }
}

void decode_u32(std::string_view options, const Text& text) {
  for (const Attribute& a : attributes_by_number(options)) {
    const auto word = value_of<std::uint32_t>(a.payload);
    if (a.number == TCA_U32_CLASSID) {
      text.line("TCA_U32_CLASSID " + handle_text(word));
    } else if (a.number == TCA_U32_HASH) {
      text.line("TCA_U32_HASH " + u32_handle_text(word));
    } else if (a.number == TCA_U32_LINK) {
      text.line("TCA_U32_LINK " + u32_handle_text(word));
    } else if (a.number == TCA_U32_DIVISOR) {
      text.line("TCA_U32_DIVISOR " + std::to_string(word));
    } else if (a.number == TCA_U32_SEL) {
      text.line("TCA_U32_SEL");
      decode_selector(a.payload, text.deeper());
    } else {
      unknown(text, a);
    }
  }
}

void decode_fw(std::string_view options, const Text& text) {
  for (const Attribute& a : attributes_by_number(options)) {
    if (a.number == TCA_FW_MASK) {
      text.line("TCA_FW_MASK 0x" + hex(value_of<std::uint32_t>(a.payload)));
    } else {
      unknown(text, a);
    }
  }
}

void decode_program(std::string_view payload, const Text& text) {
  for (; payload.size() >= sizeof(sock_filter); payload.remove_prefix(sizeof(sock_filter))) {
    const auto op = value_of<sock_filter>(payload);
    text.line("code " + std::to_string(op.code) + " jt " + std::to_string(op.jt) + " jf " +
              std::to_string(op.jf) + " k 0x" + hex(op.k));
  }
}

void decode_bpf(std::string_view options, const Text& text) {
  for (const Attribute& a : attributes_by_number(options)) {
    if (a.number == TCA_BPF_OPS_LEN) {
      text.line("TCA_BPF_OPS_LEN " + std::to_string(value_of<std::uint16_t>(a.payload)));
    } else if (a.number == TCA_BPF_OPS) {
      text.line("TCA_BPF_OPS");
      decode_program(a.payload, text.deeper());
    } else {
      unknown(text, a);
    }
  }
}

}  // namespace

void decode_options(std::string_view kind, std::string_view options, const Text& text) {
  using Decoder = void (*)(std::string_view, const Text&);
  static const std::map<std::string_view, Decoder> decoders = {
      {"htb", decode_htb}, {"pfifo", decode_pfifo},       {"sfq", decode_sfq}, {"u32", decode_u32},
      {"fw", decode_fw},   {"fq_codel", decode_fq_codel}, {"bpf", decode_bpf}};
  const auto decoder = decoders.find(kind);
  if (decoder != decoders.end()) {
    decoder->second(options, text);
  } else if (!options.empty()) {
    text.line(bytes(options));
  }
}

}  // namespace golden
