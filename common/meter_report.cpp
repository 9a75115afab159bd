#include "common/meter_report.h"

#include <algorithm>
#include <array>
#include <vector>

#include "common/meters.h"
#include "common/text.h"

namespace meter {
namespace {

using Row = std::array<std::string, 3>;  // name, value, description

std::string with_unit(std::uint64_t value, const Metric& metric) {
  return metric.unit().empty() ? text::decimal(value) : text::concat(value, ' ', metric.unit());
}

std::string timing_text(const Timing& timing) {
  std::string shown = text::concat(timing.count(), " in ", with_unit(timing.total(), timing));
  if (timing.count() == 0)
    return shown;
  return text::concat(shown, " (min ", timing.minimum(), ", mean ", timing.total() / timing.count(), ", max ",
                      timing.maximum(), ')');
}

void add_rows(std::vector<Row>& rows, const Group& group, const std::string& prefix) {
  const std::string inner = prefix + group.name() + '.';
  for (const Metric* metric : group.values())
    rows.push_back({inner + metric->name(), with_unit(metric->value(), *metric), metric->description()});
  for (const Timing* timing : group.timings())
    rows.push_back({inner + timing->name(), timing_text(*timing), timing->description()});
  for (const Group* member : group.groups())
    add_rows(rows, *member, inner);
}

std::string quoted(std::string_view value) {
  std::string result = "\"";
  for (const char character : value) {
    const auto code = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      result += '\\';
      result += character;
    } else if (code < 0x20) {
      result += text::concat("\\u00", text::hex_digits[code >> 4], text::hex_digits[code & 15]);
    } else {
      result += character;
    }
  }
  return result + '"';
}

std::string json_members_of(const Metric& metric) {
  return text::concat("\"name\": ", quoted(metric.name()), ", \"unit\": ", quoted(metric.unit()),
                      ", \"description\": ", quoted(metric.description()));
}

std::string json_of(const Timing& timing) {
  const auto if_measured = [&](std::uint64_t value) {
    return timing.count() == 0 ? std::string("null") : text::decimal(value);
  };
  return text::concat('{', json_members_of(timing), ", \"count\": ", timing.count(),
                      ", \"total\": ", timing.total(), ", \"total_of_squares\": ", timing.total_of_squares(),
                      ", \"minimum\": ", if_measured(timing.minimum()),
                      ", \"maximum\": ", if_measured(timing.maximum()), '}');
}

std::string json_of(const Metric& metric) {
  return text::concat('{', json_members_of(metric), ", \"value\": ", metric.value(), '}');
}

std::string json_of(const Group& group);

template <typename Member>
void append_json(std::string& list, const std::vector<Member*>& members) {
  for (const Member* member : members) {
    if (!list.empty())
      list += ", ";
    list += json_of(*member);
  }
}

std::string json_of(const Group& group) {
  std::string metrics;
  append_json(metrics, group.values());
  append_json(metrics, group.timings());
  std::string groups;
  append_json(groups, group.groups());
  return text::concat("{\"name\": ", quoted(group.name()), ", \"metrics\": [", metrics, "], \"groups\": [",
                      groups, "]}");
}

}  // namespace

std::string report_as_table() {
  std::vector<Row> rows;
  for (const Group* group : Group::top_level())
    add_rows(rows, *group, "");
  Row::size_type widths[2] = {};
  for (const Row& row : rows) {
    for (std::size_t column = 0; column < std::size(widths); ++column)
      widths[column] = std::max(widths[column], row[column].size());
  }
  std::string table;
  for (const Row& row : rows) {
    for (std::size_t column = 0; column < std::size(widths); ++column)
      table += row[column] + std::string(widths[column] - row[column].size() + 2, ' ');
    table += row.back() + '\n';
  }
  return table;
}

std::string report_as_json() {
  std::string groups;
  append_json(groups, Group::top_level());
  return text::concat("{\"groups\": [", groups, "]}");
}

}  // namespace meter
