#include <array>
#include <functional>
#include <ostream>

#include "ctl/direction_name.h"
#include "ctl/measurement.h"
#include "ctl/utf8.h"

// Each family of metrics is two lines that describe it and then its samples:
//
//   # HELP quenby_tariff_bytes_total Bytes that have left the class.
//   # TYPE quenby_tariff_bytes_total counter
//   quenby_tariff_bytes_total{direction="upload",number="4",tariff="4711 Hill Farm"} 845000
namespace quenby {
namespace {

using Value = std::optional<std::uint64_t>;

struct MetricFamily {
  std::string name;
  const char* type;
  const char* help;
};

// A class as the families see it.
struct Sample {
  const ShapedClass& shaped;
  const std::optional<ClassCounters>& counters;
};

struct ClassFamily {
  const char* name;
  const char* type;
  const char* help;
  Value (*value)(const Sample& sample);
};

template <std::uint64_t ClassCounters::*Member>
Value counted(const Sample& sample) {
  if (!sample.counters) return std::nullopt;
  return (*sample.counters).*Member;
}

template <std::optional<std::int64_t> ShapedClass::*Member>
Value configured(const Sample& sample) {
  const std::optional<std::int64_t>& rate = sample.shaped.*Member;
  if (!rate) return std::nullopt;
  return static_cast<std::uint64_t>(*rate);
}

template <std::uint32_t HtbClass::*Member>
Value resolved(const Sample& sample) {
  return sample.shaped.planned.htb.*Member;
}

constexpr std::array<ClassFamily, 10> kClassFamilies = {{
    {"bytes_total", "counter", "Bytes that have left the class.", counted<&ClassCounters::bytes>},
    {"packets_total", "counter", "Packets that have left the class.",
     counted<&ClassCounters::packets>},
    {"dropped_packets_total", "counter", "Packets that the class or its queue has dropped.",
     counted<&ClassCounters::drops>},
    {"overlimits_total", "counter", "How often packets had to wait for the ceiling.",
     counted<&ClassCounters::overlimits>},
    {"backlog_bytes", "gauge", "Bytes that wait in the queue.",
     counted<&ClassCounters::backlog_bytes>},
    {"backlog_packets", "gauge", "Packets that wait in the queue.",
     counted<&ClassCounters::backlog_packets>},
    {"configured_guarantee_bytes_per_second", "gauge", "The guaranteed rate in the files.",
     configured<&ShapedClass::configured_guarantee>},
    {"configured_ceiling_bytes_per_second", "gauge", "The speed in the files.",
     configured<&ShapedClass::configured_ceiling>},
    {"guarantee_bytes_per_second", "gauge", "The guaranteed rate that fits the line.",
     resolved<&HtbClass::rate>},
    {"ceiling_bytes_per_second", "gauge", "The speed that fits the line.",
     resolved<&HtbClass::ceil>},
}};

std::string label_value(const std::string& text) {
  std::string escaped;
  for (const char c : valid_utf8(text)) {
    if (c == '\n') {
      escaped += "\\n";
    } else {
      if (c == '\\' || c == '"') escaped += '\\';
      escaped += c;
    }
  }
  return escaped;
}

std::string label(const char* name, const std::string& text) {
  return name + ("=\"" + label_value(text)) + '"';
}

std::string direction_label(Direction way) { return label("direction", direction_name(way)); }

std::string labels_of(const ShapedClass& shaped) {
  const PlannedClass& planned = shaped.planned;
  const std::string direction = direction_label(planned.way);
  if (!shaped.is_tariff()) return direction + ',' + label("class", planned.name);
  return direction + ',' + label("number", std::to_string(planned.number)) + ',' +
         label("tariff", planned.name);
}

// Writes families one after the other, in blocks: a long list has tens of megabytes, and each piece
// that is given to the stream would cost as much as a block.
class Writer {
 public:
  explicit Writer(std::ostream& out) : out_(out) {}
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  ~Writer() { out_ << block_; }

  void begin(const MetricFamily& family) {
    name_ = family.name;
    block_ +=
        "# HELP " + name_ + ' ' + family.help + "\n# TYPE " + name_ + ' ' + family.type + '\n';
  }
  // `labels` are in braces, or empty.
  void sample(const std::string& labels, const std::string& value) {
    block_ += name_;
    block_ += labels;
    block_ += ' ';
    block_ += value;
    block_ += '\n';
    if (block_.size() < kBlock) return;
    out_ << block_;
    block_.clear();
  }
  void single(const MetricFamily& family, const std::string& value) {
    begin(family);
    sample("", value);
  }

 private:
  static constexpr std::size_t kBlock = 65536;

  std::ostream& out_;
  std::string name_;
  std::string block_;
};

std::string in_braces(const std::string& labels) { return '{' + labels + '}'; }

void write_directions(
    const Measurement& measurement, const MetricFamily& family,
    const std::function<std::optional<std::string>(const ShapedDirection&)>& value, Writer& out) {
  out.begin(family);
  for (const ShapedDirection& direction : measurement.shaping.directions) {
    if (const auto text = value(direction))
      out.sample(in_braces(direction_label(direction.way)), *text);
  }
}

void write_devices(const Measurement& measurement, Writer& out) {
  out.begin({"quenby_direction_info", "gauge", "The device that shapes a direction."});
  for (const ShapedDirection& direction : measurement.shaping.directions) {
    out.sample(in_braces(label("device", direction.device) + ',' + direction_label(direction.way)),
               "1");
  }
}

std::size_t missing_classes(const Measurement& measurement, Direction way) {
  std::size_t missing = 0;
  for (std::size_t i = 0; i < measurement.counters.size(); ++i) {
    const bool is_here = measurement.shaping.classes[i].planned.way == way;
    if (is_here && !measurement.counters[i]) ++missing;
  }
  return missing;
}

void write_line(const Measurement& measurement, Writer& out) {
  write_devices(measurement, out);
  write_directions(
      measurement,
      {"quenby_limit_bytes_per_second", "gauge", "What there is to share in a direction."},
      [](const ShapedDirection& direction) -> std::optional<std::string> {
        if (direction.limit < 0) return std::nullopt;
        return std::to_string(direction.limit);
      },
      out);
  write_directions(
      measurement,
      {"quenby_guaranteed_ratio", "gauge",
       "The guarantees of the files in relation to the limit; above 1 they are scaled down."},
      [](const ShapedDirection& direction) -> std::optional<std::string> {
        if (direction.limit <= 0) return std::nullopt;
        return std::to_string(static_cast<double>(direction.guarantees) /
                              static_cast<double>(direction.limit));
      },
      out);
  write_directions(
      measurement,
      {"quenby_missing_classes", "gauge", "Classes that the files ask for and the kernel lacks."},
      [&measurement](const ShapedDirection& direction) -> std::optional<std::string> {
        return std::to_string(missing_classes(measurement, direction.way));
      },
      out);
}

void write_classes(const Measurement& measurement, bool of_tariffs, Writer& out) {
  const std::vector<ShapedClass>& classes = measurement.shaping.classes;
  std::vector<std::string> labels(classes.size());
  for (std::size_t i = 0; i < classes.size(); ++i) {
    if (classes[i].is_tariff() == of_tariffs) labels[i] = in_braces(labels_of(classes[i]));
  }
  for (const ClassFamily& family : kClassFamilies) {
    const std::string subject = of_tariffs ? "quenby_tariff_" : "quenby_line_";
    out.begin({subject + family.name, family.type, family.help});
    for (std::size_t i = 0; i < classes.size(); ++i) {
      if (labels[i].empty()) continue;
      const Value value = family.value({classes[i], measurement.counters[i]});
      if (value) out.sample(labels[i], std::to_string(*value));
    }
  }
}

}  // namespace

void write_prometheus(const Measurement& measurement, std::ostream& stream) {
  const Shaping& shaping = measurement.shaping;
  Writer out(stream);
  out.begin({"quenby_build_info", "gauge", "The version of the program."});
  out.sample(in_braces(label("version", measurement.version)), "1");
  out.single({"quenby_export_timestamp_seconds", "gauge", "When this was read."},
             std::to_string(measurement.time));
  out.single({"quenby_enabled", "gauge", "Whether the files ask for shaping."},
             shaping.enabled ? "1" : "0");
  if (shaping.has_wan) {
    out.single({"quenby_wan_present", "gauge", "Whether there is the WAN interface of the files."},
               *shaping.has_wan ? "1" : "0");
  }
  out.single({"quenby_tariffs", "gauge", "Stored tariffs."}, std::to_string(shaping.tariffs));
  if (measurement.differences) {
    out.single({"quenby_differences", "gauge", "Differences between the files and the kernel."},
               std::to_string(*measurement.differences));
  }
  write_line(measurement, out);
  write_classes(measurement, false, out);
  write_classes(measurement, true, out);
}

}  // namespace quenby
