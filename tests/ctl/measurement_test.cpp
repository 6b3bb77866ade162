#include "ctl/measurement.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/ctl/shaping_fixture.h"

// The forms in which counters and rates are exported.
namespace quenby {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Lines = std::vector<std::string>;

// Class number N has sent N packets of 100 bytes, but for tariff 5's download, which is missing.
Measurement measured(Shaping shaping = test::two_tariffs()) {
  Measurement measurement;
  measurement.time = 1'700'000'000;
  measurement.version = "0.7";
  measurement.shaping = std::move(shaping);
  for (const ShapedClass& shaped : measurement.shaping.classes) {
    const unsigned n = shaped.planned.number;
    const bool missing = n == 5 && shaped.planned.way == Direction::download;
    measurement.counters.push_back(
        missing ? std::optional<ClassCounters>()
                : ClassCounters{shaped.planned.htb.handle, n, 100ULL * n, 7, 8, 90, 2});
  }
  return measurement;
}

std::string text_of(void (*write)(const Measurement&, std::ostream&),
                    const Measurement& measurement) {
  std::ostringstream out;
  write(measurement, out);
  return out.str();
}

Measurement named(const std::string& name) {
  return measured(shaping_of(test::load_of(test::line(), test::shaped(name, 4, "10.0.0.1")),
                             test::kGigabitPort));
}

Lines lines_with(const std::string& text, const std::string& start) {
  Lines lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with(start)) lines.push_back(line);
  }
  return lines;
}

TEST(Prometheus, DescribesEachFamilyOnceAboveItsSamples) {
  const std::string text = text_of(write_prometheus, measured());
  EXPECT_THAT(text, HasSubstr(R"(# HELP quenby_tariff_bytes_total Bytes that have left the class.
# TYPE quenby_tariff_bytes_total counter
quenby_tariff_bytes_total{direction="upload",number="4",tariff="a"} 400
quenby_tariff_bytes_total{direction="upload",number="5",tariff="b"} 500
quenby_tariff_bytes_total{direction="download",number="4",tariff="a"} 400
# HELP quenby_tariff_packets_total)"));
  const Lines types = lines_with(text, "# TYPE ");
  EXPECT_EQ(types.size(), 29U);
  EXPECT_EQ(std::set<std::string>(types.begin(), types.end()).size(), types.size());
  EXPECT_EQ(lines_with(text, "# HELP ").size(), types.size());
}

TEST(Prometheus, HasTheLineApartFromTheTariffs) {
  EXPECT_EQ(lines_with(text_of(write_prometheus, measured()), "quenby_line_backlog_bytes{"),
            (Lines{R"(quenby_line_backlog_bytes{direction="upload",class="root"} 90)",
                   R"(quenby_line_backlog_bytes{direction="upload",class="system"} 90)",
                   R"(quenby_line_backlog_bytes{direction="download",class="root"} 90)",
                   R"(quenby_line_backlog_bytes{direction="download",class="system"} 90)"}));
}

TEST(Prometheus, HasTheRatesOfAClassThatIsMissingInTheKernel) {
  const std::string text = text_of(write_prometheus, measured());
  EXPECT_THAT(text, Not(HasSubstr(R"(_packets_total{direction="download",number="5")")));
  EXPECT_THAT(text,
              AllOf(HasSubstr(R"(quenby_tariff_ceiling_bytes_per_second{direction="download",)"
                              R"(number="5",tariff="b"} 250000)"),
                    HasSubstr(R"(quenby_missing_classes{direction="download"} 1)"),
                    HasSubstr(R"(quenby_missing_classes{direction="upload"} 0)")));
}

TEST(Prometheus, HasWhatIsTrueOfTheWholeRouter) {
  EXPECT_THAT(text_of(write_prometheus, measured()),
              AllOf(HasSubstr("\nquenby_build_info{version=\"0.7\"} 1\n"),
                    HasSubstr("\nquenby_export_timestamp_seconds 1700000000\n"),
                    HasSubstr("\nquenby_enabled 1\n"), HasSubstr("\nquenby_tariffs 2\n"),
                    HasSubstr(R"(quenby_direction_info{device="ifb_ingr",direction="download"} 1)"),
                    HasSubstr(R"(quenby_limit_bytes_per_second{direction="upload"} 625000)"),
                    HasSubstr(R"(quenby_guaranteed_ratio{direction="download"} 0.300000)")));
}

TEST(Prometheus, HasDifferencesWhereSomebodyHasLooked) {
  Measurement measurement = measured();
  EXPECT_THAT(text_of(write_prometheus, measurement), Not(HasSubstr("quenby_differences")));
  measurement.differences = 3;
  EXPECT_THAT(text_of(write_prometheus, measurement), HasSubstr("\nquenby_differences 3\n"));
}

TEST(Prometheus, EscapesLabels) {
  EXPECT_THAT(text_of(write_prometheus, named("a\"b\\c\nd")), HasSubstr(R"(tariff="a\"b\\c\nd"})"));
  EXPECT_THAT(text_of(write_prometheus, named("Käthe")), HasSubstr("tariff=\"Käthe\"}"));
  EXPECT_THAT(text_of(write_prometheus, named("K\xe4the")),
              HasSubstr("tariff=\"K\xef\xbf\xbdthe\"}"));
}

TEST(Prometheus, OfADisabledLineHasNoClasses) {
  GlobalSet global = test::line();
  global.global.enabled = false;
  const std::string text =
      text_of(write_prometheus, measured(shaping_of(test::load_of(global), test::kGigabitPort)));
  EXPECT_THAT(text, HasSubstr("\nquenby_enabled 0\n"));
  EXPECT_TRUE(lines_with(text, "quenby_tariff_").empty());
}

// Whether the WAN interface is there; nothing of it where none is named.
TEST(Exports, TellWhetherTheWanInterfaceIsThere) {
  const auto exported = [](const std::string& wan, bool has_wan) {
    return measured(
        shaping_of(test::load_of(test::line(wan)), {test::kMbit, RouterFacts{has_wan, ""}}));
  };
  const auto metric = [](const Measurement& measurement) {
    return lines_with(text_of(write_prometheus, measurement), "quenby_wan_present");
  };
  const auto member = [](const Measurement& measurement) {
    return nlohmann::json::parse(text_of(write_json, measurement)).at("wan_present");
  };
  EXPECT_EQ(metric(exported("eth1", true)), Lines{"quenby_wan_present 1"});
  EXPECT_EQ(metric(exported("eth9", false)), Lines{"quenby_wan_present 0"});
  EXPECT_EQ(metric(exported("", false)), Lines{});
  EXPECT_EQ(member(exported("eth1", true)), true);
  EXPECT_EQ(member(exported("eth9", false)), false);
  EXPECT_EQ(member(exported("", false)), nullptr);
}

TEST(Json, HasNullForWhatIsNotKnown) {
  const nlohmann::json object = nlohmann::json::parse(text_of(write_json, measured()));
  EXPECT_EQ(object["time"], 1'700'000'000);
  EXPECT_EQ(object["differences"], nullptr);
  EXPECT_EQ(object["classes"].size(), 8U);
  const nlohmann::json missing = object["classes"].back();
  EXPECT_EQ(missing["packets"], nullptr);
  EXPECT_EQ(missing["ceiling"], 250'000);
  EXPECT_EQ(object["classes"][1]["configured_guarantee"], nullptr);
  EXPECT_EQ(object["directions"][1]["device"], "ifb_ingr");
}

TEST(Csv, HasALineForEachClass) {
  const std::string text = text_of(write_csv, measured());
  EXPECT_EQ(text.substr(0, text.find('\n')),
            "direction,device,number,name,packets,bytes,drops,overlimits,backlog_bytes,"
            "backlog_packets,configured_guarantee,configured_ceiling,guarantee,ceiling");
  EXPECT_EQ(lines_with(text, "upload,").size(), 4U);
  EXPECT_EQ(lines_with(text, "upload,eth1,4,").front(),
            "upload,eth1,4,a,4,400,7,8,90,2,62500,62500,62500,62500");
  EXPECT_EQ(lines_with(text, "download,ifb_ingr,5,").front(),
            "download,ifb_ingr,5,b,,,,,,,250000,250000,250000,250000");
}

TEST(Csv, QuotesWhatWouldBeTakenForFields) {
  EXPECT_THAT(text_of(write_csv, named("a,b")), HasSubstr(",4,\"a,b\",4,"));
  EXPECT_THAT(text_of(write_csv, named("5\" line")), HasSubstr(",4,\"5\"\" line\",4,"));
  EXPECT_THAT(text_of(write_csv, named("plain")), HasSubstr(",4,plain,4,"));
}

}  // namespace
}  // namespace quenby
