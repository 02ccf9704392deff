#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <set>
#include <string>

#include "FuzzInput.h"
#include "scheduler/FieldReaders.h"
#include "scheduler/IntervalOrder.h"
#include "scheduler/NextRun.h"
#include "scheduler/Rules.h"

// Whatever stands in the fields of a record: it reads as something, the rules judge it, and what
// they foretell is what they say when the time has come.
//
// The first line is a zone, a locale and the present in Unix seconds; each further one a field, a
// type and a value. An empty line begins another record. See fuzz/corpus/field_readers.

namespace kv {
namespace {

class KeepingTrace final : public Trace {
 public:
  void logString(OptionalText text) override { bytes += text.value_or("").size(); }
  void logString_varstr(OptionalText text, OptionalText value) override {
    bytes += text.value_or("").size() + value.value_or("").size();
  }
  bool isTracing() const override { return true; }
  std::size_t bytes = 0;
};

template <class Number>
Number numberIn(std::string_view text) {
  Number number{};
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

PropertyList valueIn(std::string_view text) {
  switch (takeFirst(text)) {
    case 'i':
      return numberIn<std::int64_t>(text);
    case 'u':
      return numberIn<std::uint64_t>(text);
    case 'r':
      return numberIn<double>(text);
    case 'b':
      return text == "1";
    case 'd':
      return Date{Seconds(numberIn<double>(text))};
    case 'U':
      return PropertyList::Uid{numberIn<std::uint64_t>(text)};
    case 'x':
      return PropertyList::Data(text.begin(), text.end());
    case 'a':
      return PropertyList::Array{valueIn(text)};
    case 'k':
      return PropertyList::Dictionary{{"k", valueIn(text)}};
    default:
      return text;
  }
}

void readEveryWay(const PropertyList* value) {
  const std::int64_t number = integerValue(value);
  require(storedDay(value) == std::to_string(number), "a day is the integer value");
  require(shownValue(value).has_value() == (value != nullptr), "what is there can be shown");
  const auto date = dateValue(value);
  require(!date || std::isfinite(date->sinceReference.count()), "a date is finite");
  if (value != nullptr && value->as<std::int64_t>() != nullptr) {
    require(truthValue(value) == (number != 0), "an integer is true unless it is 0");
  }
}

/// Puts a line's field into the record that it belongs to.
void addField(std::string_view line, PropertyList::Dictionary& record,
              PropertyList::Dictionary& options) {
  const char key = takeFirst(line);
  const PropertyList value = valueIn(line);
  readEveryWay(&value);
  switch (key) {
    case 'n':
      return record.set("backupset", value);
    case 'p':
      return record.set("destinationPath", value);
    case 'o':
      return record.set("schopts", value);
    case 's':
      return options.set("scheduleIt", value);
    case 't':
      return options.set("dayWeekOrHour", value);
    case 'c':
      return options.set("datePick", value);
    case 'm':
      return options.set("minhourdate", value);
    case 'l':
      return options.set("dayOfMonth", value);
    case 'a':
      return options.set("afterSleep", value);
    case 'r':
      return options.set("runState", value);
    default:
      return options.set(std::string("day") + key, value);
  }
}

TaskList tasksIn(FuzzInput& input) {
  TaskList list;
  while (!input.isAtEnd()) {
    PropertyList::Dictionary record;
    PropertyList::Dictionary options;
    for (auto line = input.line(); !line.empty(); line = input.line()) {
      addField(line, record, options);
    }
    if (record.find("schopts") == nullptr) record.set("schopts", options);
    list.emplace_back(record);
  }
  return list;
}

void judge(const PropertyList& entry, Date now, const DatePatterns& patterns) {
  KeepingTrace trace;
  const TaskRecord record(entry);
  LocalMoment moment(now, patterns);
  const bool isDueNow = judgeByType(record, moment, trace).has_value();
  passesMainGate(record);
  passesIntervalGate(record);
  const auto due = nextDue(entry, now, patterns);
  require(!due || isTakingPart(entry), "a set that takes no part is never due");
  require(!due || *due >= now, "the next run is not in the past");
  if (due) require(nextDue(entry, *due, patterns) == due, "what was foretold is due then");
  if (!record.isInterval() && isTakingPart(entry) && isDueNow) {
    require(due == now, "what is due is due now");
  }
}

void order(const TaskList& list, Date now, const DatePatterns& patterns) {
  KeepingTrace trace;
  const auto tasks = overdueIntervalTasks(list, now, patterns, trace);
  Seconds before{INFINITY};
  for (const PropertyList* task : tasks) {
    require(task >= list.data() && task < list.data() + list.size(), "a task of the list");
    const TaskRecord record(*task);
    require(record.isInterval() && record.nextDue() < now, "it is overdue");
    require(now - *record.nextDue() < before, "the most overdue comes first");
    before = now - *record.nextDue();
  }
}

}  // namespace
}  // namespace kv

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using kv::DateLocale;
  // Weeks that start on Sunday, Monday and Saturday, digits and a calendar of other kinds.
  static const kv::DatePatterns kPatterns[] = {kv::DatePatterns(DateLocale::fromName("C")),
                                               kv::DatePatterns(DateLocale::fromName("de_DE")),
                                               kv::DatePatterns(DateLocale::fromName("ar_EG")),
                                               kv::DatePatterns(DateLocale::fromName("fa_IR")),
                                               kv::DatePatterns(DateLocale::fromName("th_TH"))};
  kv::FuzzInput input(data, size);
  std::string_view world = input.line();
  kv::setZone(kv::takeFirst(world));
  const auto locale = static_cast<unsigned char>(kv::takeFirst(world));
  const auto& patterns = kPatterns[locale % std::size(kPatterns)];
  const auto now = kv::Date::fromUnixSeconds(kv::numberIn<double>(world));
  if (!std::isfinite(now.unixSeconds())) return 0;  // no clock says that

  const kv::TaskList list = kv::tasksIn(input);
  for (const kv::PropertyList& entry : list) kv::judge(entry, now, patterns);
  kv::order(list, now, patterns);
  kv::readEveryWay(nullptr);
  return 0;
}
