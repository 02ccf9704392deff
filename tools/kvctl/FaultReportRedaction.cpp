#include "tools/kvctl/FaultReportRedaction.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <string_view>
#include <utility>

#include "scheduler/FieldReaders.h"
#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/FaultReportReplay.h"

namespace kv::kvctl {
namespace {

/// Fields of a record that keep their names.
constexpr std::array<std::string_view, 4> kFields = {"backupset", "destinationPath", "sourcePaths",
                                                     "schopts"};
/// Fields of the schedule, which decide.
constexpr std::array<std::string_view, 16> kOptions = {
    "scheduleIt",  "dayWeekOrHour", "runState", "afterSleep", "dayOfMonth", "datePick",
    "minhourdate", "sethours",      "setmins",  "day1",       "day2",       "day3",
    "day4",        "day5",          "day6",     "day7"};

template <std::size_t count>
bool isAmong(const std::array<std::string_view, count>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

/// The line ends of a text stay: the trace has as many lines then.
std::string withLineEndsOf(std::string_view original, std::string text) {
  text.append(static_cast<std::size_t>(std::count(original.begin(), original.end(), '\n')), '\n');
  return text;
}

/// A text from which the scheduler reads the same number and the same truth.
std::string decidingText(const PropertyList& value) {
  const std::int64_t number = integerValue(&value);
  return number == 0 && truthValue(&value) ? "Y" : fmt::format("{}", number);
}

/// The substitutes of one report.
class Substitutes {
 public:
  std::string name(const std::string& text) { return of(names_, "set", text); }
  std::string path(const std::string& text) { return of(paths_, "path", text); }
  std::string field(const std::string& text) { return of(fields_, "field", text); }
  std::string text(const std::string& text) {
    if (text.starts_with('/') || text.starts_with('~') || paths_.contains(text)) return path(text);
    return names_.contains(text) ? name(text) : of(texts_, "text", text);
  }

 private:
  using Known = std::map<std::string, std::string>;
  static std::string of(Known& known, const char* kind, const std::string& text) {
    auto& substitute = known[text];
    if (substitute.empty()) {
      substitute = withLineEndsOf(text, fmt::format("{}-{}", kind, known.size()));
    }
    return substitute;
  }

  Known names_;
  Known paths_;
  Known fields_;
  Known texts_;
};

/// A name or path, which should be a text and may be anything.
template <class Substitute>
PropertyList redactedNaming(const PropertyList& value, const Substitute& substitute) {
  const bool isNumber = value.visit([]<class T>(const T&) {
    return std::is_arithmetic_v<T> || std::is_same_v<T, Date> ||
           std::is_same_v<T, PropertyList::Uid>;
  });
  return isNumber ? value : PropertyList(substitute(value.description()));
}

class Redactor {
 public:
  /// Names and paths are known as such wherever they stand, even before their own place.
  void learn(const PropertyList& value) {
    const auto* const fields = value.as<PropertyList::Dictionary>();
    if (fields == nullptr) return;
    if (const auto* const set = fields->find("backupset")) name(*set);
    if (const auto* const destination = fields->find("destinationPath")) path(*destination);
  }

  PropertyList record(const PropertyList& value) {
    const auto* const fields = value.as<PropertyList::Dictionary>();
    if (fields == nullptr) return any(value);
    return eachOf(*fields, kFields, [this](std::string_view key, const PropertyList& field) {
      if (key == "backupset") return name(field);
      if (key == "destinationPath") return path(field);
      return key == "schopts" ? options(field) : any(field);
    });
  }

  PropertyList path(const PropertyList& value) {
    return redactedNaming(value, [this](const auto& text) { return substitutes_.path(text); });
  }

 private:
  PropertyList name(const PropertyList& value) {
    return redactedNaming(value, [this](const auto& text) { return substitutes_.name(text); });
  }

  PropertyList options(const PropertyList& value) {
    const auto* const fields = value.as<PropertyList::Dictionary>();
    if (fields == nullptr) return any(value);
    return eachOf(*fields, kOptions, [this](std::string_view key, const PropertyList& field) {
      const auto* const text = field.as<PropertyList::String>();
      if (text == nullptr || !isAmong(kOptions, key)) return any(field);
      return PropertyList(withLineEndsOf(*text, decidingText(field)));
    });
  }

  PropertyList any(const PropertyList& value) {
    if (const auto* const text = value.as<PropertyList::String>()) return substitutes_.text(*text);
    if (value.as<PropertyList::Data>() != nullptr) return PropertyList::Data();
    if (const auto* const elements = value.as<PropertyList::Array>()) {
      PropertyList::Array array;
      for (const PropertyList& element : *elements) array.push_back(any(element));
      return array;
    }
    const auto* const fields = value.as<PropertyList::Dictionary>();
    if (fields == nullptr) return value;
    return eachOf(*fields, std::array<std::string_view, 0>(),
                  [this](std::string_view, const PropertyList& field) { return any(field); });
  }

  template <std::size_t count, class Work>
  PropertyList eachOf(const PropertyList::Dictionary& fields,
                      const std::array<std::string_view, count>& known, const Work& work) {
    std::vector<PropertyList::Entry> entries;
    for (const PropertyList::Entry& field : fields) {
      entries.push_back({isAmong(known, field.key) ? field.key : substitutes_.field(field.key),
                         work(field.key, field.value)});
    }
    return PropertyList::Dictionary::fromEntries(std::move(entries));
  }

  Substitutes substitutes_;
};

std::string redactedHostLine(const std::string& line) {
  constexpr std::size_t kStampAndTag = sizeof("09:31:07 [Timer] ") - 1;
  const std::string_view text = std::string_view(line).substr(std::min(kStampAndTag, line.size()));
  return text.starts_with("Paused ") ? "(the host says that scheduling is paused)"
                                     : "(a line of the host)";
}

bool isSameDecision(const Judgement& one, const Judgement& other) {
  return one.index == other.index && one.outcome == other.outcome;
}

}  // namespace

FaultReport redacted(const FaultReport& report) {
  FaultReport result = report;
  result.isRedacted = true;
  result.zone.name.clear();
  Redactor redactor;
  for (const PropertyList& record : report.list()) redactor.learn(record);
  for (FaultReport::Document& document : result.documents) {
    for (PropertyList& record : document.records) record = redactor.record(record);
  }
  for (HostAnswer& answer : result.answers) {
    if (answer.subject) answer.subject = redactor.path(*answer.subject);
    if (answer.answer && answer.answer->as<bool>() == nullptr) {
      answer.answer = PropertyList(integerValue(&*answer.answer));
    }
  }
  const ReplayResult made = replay(result);
  if (!std::equal(made.judgements.begin(), made.judgements.end(), report.judgements.begin(),
                  report.judgements.end(), isSameDecision)) {
    throw Refusal(ExitStatus::kUnexpected,
                  "without names and paths other decisions would be made; record without --redact");
  }
  result.trace.clear();
  auto next = made.trace.begin();
  for (const FaultReport::Line& line : report.trace) {
    if (line.isHosts) {
      result.trace.push_back({redactedHostLine(line.text), true});
    } else if (next != made.trace.end()) {
      result.trace.push_back({*next++, false});
    }
  }
  return result;
}

}  // namespace kv::kvctl
