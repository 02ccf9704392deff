#include "tools/kvctl/FaultReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <optional>
#include <utility>

#include "app/DecisionRecord.h"
#include "scheduler/TaskRecord.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/FaultReportValues.h"

namespace kv::kvctl {
namespace {

constexpr const char* kFormat = "kvctl fault report";

[[noreturn]] void refuse(const std::string& what) {
  throw Refusal(ExitStatus::kUnreadable, "the report cannot be understood: " + what);
}

/// Looks through a text before anything is made of it: whether it is JSON, how deep, how much.
class Limits final : public nlohmann::json_sax<Json> {
 public:
  bool null() override { return count(); }
  bool boolean(bool) override { return count(); }
  bool number_integer(number_integer_t) override { return count(); }
  bool number_unsigned(number_unsigned_t) override { return count(); }
  bool number_float(number_float_t, const string_t&) override { return count(); }
  bool string(string_t&) override { return count(); }
  bool binary(binary_t&) override { return count(); }
  bool start_object(std::size_t) override { return enter(); }
  bool end_object() override { return leave(); }
  bool start_array(std::size_t) override { return enter(); }
  bool end_array() override { return leave(); }
  bool key(string_t&) override {
    // Each key of an object is compared with all before it.
    if (++keys_.back() <= kMostKeys) return true;
    fault_ = "an object with countless keys";
    return false;
  }
  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::detail::exception&) override {
    fault_ = fmt::format("no JSON, from byte {} on", position);
    return false;
  }

  const std::string& fault() const { return fault_; }

 private:
  bool count() {
    if (++values_ <= FaultReport::kMostValues) return true;
    fault_ = "too many values";
    return false;
  }
  bool enter() {
    keys_.push_back(0);
    if (keys_.size() <= FaultReport::kDeepest) return count();
    fault_ = "nested too deeply";
    return false;
  }
  bool leave() {
    keys_.pop_back();
    return true;
  }

  std::vector<std::size_t> keys_;  // of each open value
  std::size_t values_ = 0;
  std::string fault_;
};

Json jsonFrom(std::string_view text) {
  if (text.size() > FaultReport::kMostBytes) refuse("it is larger than 64 MB");
  Limits limits;
  if (!Json::sax_parse(text, &limits)) refuse(limits.fault());
  return Json::parse(text);
}

/// The member of an object, of the type that `is` asks for.
const Json& member(const Json& object, const char* key, bool (Json::*is)() const noexcept) {
  const auto found = object.is_object() ? object.find(key) : object.end();
  if (found == object.end() || !((*found).*is)()) refuse(fmt::format("\"{}\" is missing", key));
  return *found;
}

const std::string& textOf(const Json& object, const char* key) {
  return member(object, key, &Json::is_string).get_ref<const std::string&>();
}

const Json& arrayOf(const Json& object, const char* key) {
  return member(object, key, &Json::is_array);
}

/// A value that has a word in the report.
template <class T>
struct Word {
  T value;
  const char* word;
};

using State = ScheduleDocument::State;
constexpr Word<State> kStates[] = {
    {State::kMissing, "missing"}, {State::kRead, "read"}, {State::kUnreadable, "unreadable"}};

using Question = HostAnswer::Question;
constexpr Word<Question> kQuestions[] = {{Question::kDestinationPresent, "disk"},
                                         {Question::kBackupRunning, "running"},
                                         {Question::kApplicationOpen, "open"}};

template <class T, std::size_t count>
const char* wordOf(const Word<T> (&words)[count], T value) {
  return std::find_if(std::begin(words), std::end(words),
                      [value](const Word<T>& one) { return one.value == value; })
      ->word;
}

template <class T, std::size_t count>
T valueOf(const Word<T> (&words)[count], const std::string& word) {
  for (const Word<T>& one : words) {
    if (word == one.word) return one.value;
  }
  refuse(fmt::format("\"{}\" is no word that is known here", word));
}

Outcome outcomeFrom(const std::string& word) {
  for (int number = 0; number <= static_cast<int>(Outcome::kAsked); ++number) {
    const auto outcome = static_cast<Outcome>(number);
    if (word == wordFor(outcome)) return outcome;
  }
  refuse(fmt::format("\"{}\" is no decision that is known here", word));
}

std::optional<PropertyList> optionalFrom(const Json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end()) return std::nullopt;
  return valueFrom(*found);
}

FaultReport::Document documentFrom(const Json& json) {
  FaultReport::Document document;
  document.name = textOf(json, "name");
  document.state = valueOf(kStates, textOf(json, "state"));
  for (const Json& record : arrayOf(json, "records")) document.records.push_back(valueFrom(record));
  return document;
}

HostAnswer answerFrom(const Json& json) {
  return {.question = valueOf(kQuestions, textOf(json, "asked")),
          .subject = optionalFrom(json, "path"),
          .answer = optionalFrom(json, "answer")};
}

Judgement judgementFrom(const Json& json, std::size_t sets) {
  const Json& index = member(json, "index", &Json::is_number_unsigned);
  if (index.get<std::uint64_t>() >= sets) refuse("a decision on a set that there is not");
  return {.index = index.get<std::size_t>(), .outcome = outcomeFrom(textOf(json, "outcome"))};
}

FaultReport::Line lineFrom(const Json& json) {
  if (json.is_string()) return {json.get<std::string>(), false};
  return {textOf(json, "host"), true};
}

Date instantFrom(const Json& json) {
  const Date date = dateFrom(member(json, "at", &Json::is_number));
  constexpr double kFarthest = 1e14;
  if (!(std::fabs(date.unixSeconds()) < kFarthest)) refuse("an instant outside of all calendars");
  return date;
}

/// One that fromName() makes: of another calendar or another kind of digits decisions cannot be
/// made.
DateLocale localeFrom(const std::string& identifier) {
  const auto locale = DateLocale::fromName(identifier.substr(0, identifier.find('@')));
  if (locale.identifier != identifier) refuse("a locale that no system has");
  return locale;
}

Json documentJson(const FaultReport::Document& document) {
  Json records = Json::array();
  for (const PropertyList& record : document.records) records.push_back(valueJson(record));
  return {{"name", document.name},
          {"state", wordOf(kStates, document.state)},
          {"records", std::move(records)}};
}

Json answerJson(const HostAnswer& answer) {
  Json json = {{"asked", wordOf(kQuestions, answer.question)}};
  if (answer.subject) json["path"] = valueJson(*answer.subject);
  if (answer.answer) json["answer"] = valueJson(*answer.answer);
  return json;
}

}  // namespace

FaultReport FaultReport::parse(std::string_view text) {
  const Json json = jsonFrom(text);
  if (textOf(json, "format") != kFormat) refuse("it is something else");
  const Json& version = member(json, "version", &Json::is_number_integer);
  if (version != kVersion) {
    refuse(fmt::format("it is of version {}; this program knows version {}", version.dump(),
                       kVersion));
  }
  FaultReport report;
  report.program = textOf(json, "program");
  report.at = instantFrom(json);
  report.zone = ReportZone::from(member(json, "zone", &Json::is_object));
  report.locale = localeFrom(textOf(json, "locale"));
  report.isRedacted = member(json, "redacted", &Json::is_boolean).get<bool>();
  const Json& documents = arrayOf(json, "documents");
  if (documents.size() != report.documents.size()) refuse("it has not two documents");
  std::transform(documents.begin(), documents.end(), report.documents.begin(), documentFrom);
  const std::size_t sets = report.documents[0].records.size() + report.documents[1].records.size();
  for (const Json& one : arrayOf(json, "answers")) report.answers.push_back(answerFrom(one));
  for (const Json& one : arrayOf(json, "decisions")) {
    report.judgements.push_back(judgementFrom(one, sets));
  }
  for (const Json& one : arrayOf(json, "trace")) report.trace.push_back(lineFrom(one));
  return report;
}

Json FaultReport::json() const {
  Json json = {
      {"format", kFormat},           {"version", kVersion},        {"program", program},
      {"at", dateJson(at)},          {"utc", utcStamp(at)},        {"zone", zone.json()},
      {"locale", locale.identifier}, {"redacted", isRedacted},     {"documents", Json::array()},
      {"answers", Json::array()},    {"decisions", Json::array()}, {"trace", Json::array()}};
  for (const Document& document : documents) json["documents"].push_back(documentJson(document));
  for (const HostAnswer& answer : answers) json["answers"].push_back(answerJson(answer));
  for (const Judgement& judgement : judgements) {
    json["decisions"].push_back(
        {{"index", judgement.index}, {"outcome", wordFor(judgement.outcome)}});
  }
  for (const Line& line : trace) {
    json["trace"].push_back(line.isHosts ? Json{{"host", line.text}} : Json(line.text));
  }
  return json;
}

std::string FaultReport::text() const {
  std::string text = json().dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  try {
    parse(text);
  } catch (const Refusal& refusal) {
    throw Refusal(ExitStatus::kUnexpected,
                  fmt::format("the documents do not fit into a report: {}", refusal.what()));
  }
  return text;
}

TaskList FaultReport::list() const {
  TaskList list = documents[0].records;
  list.insert(list.end(), documents[1].records.begin(), documents[1].records.end());
  return list;
}

std::string judgementText(const Judgement& judgement, const TaskList& list) {
  const TaskRecord record(list.at(judgement.index));
  return fmt::format("set {} ({}): {}", judgement.index + 1, record.shownSet().value_or("no name"),
                     wordFor(judgement.outcome));
}

}  // namespace kv::kvctl
