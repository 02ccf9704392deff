#include "tools/kvctl/FaultReportZone.h"

#include <fmt/format.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <set>
#include <system_error>

#include "platform/LocalTime.h"
#include "tools/kvctl/ExitStatus.h"

namespace kv::kvctl {
namespace {

constexpr std::int64_t kHour = 3600;
/// A tick renders the instants themselves and reads local dates, which may lie a day off.
constexpr std::int64_t kMargin = 72 * kHour;
constexpr std::int64_t kStep = 6 * kHour;
/// Zones are less than a day off.
constexpr std::int32_t kLargestOffset = 24 * 3600 - 1;
constexpr std::size_t kMostChanges = 100'000;
/// What a table of a zone can number.
constexpr std::size_t kMostOffsets = 255;
/// No calendar at hand goes further; the scheduler renders no date beyond.
constexpr double kFarthest = 1.7e14;

std::int32_t offsetAt(std::int64_t time) {
  const auto offset = localOffsetFromUtc(Date::fromUnixSeconds(static_cast<double>(time)));
  return offset ? static_cast<std::int32_t>(offset->count()) : 0;
}

/// The first second in (before, after] with the offset of `after`.
std::int64_t changeBetween(std::int64_t before, std::int64_t after) {
  const std::int32_t offset = offsetAt(after);
  while (after - before > 1) {
    const std::int64_t middle = before + (after - before) / 2;
    (offsetAt(middle) == offset ? after : before) = middle;
  }
  return after;
}

void add(std::vector<ReportZone::Change>& changes, std::int64_t since, std::int32_t offset) {
  if (changes.empty() || changes.back().offset != offset) changes.push_back({since, offset});
}

std::string zoneName() {
  const char* const variable = std::getenv("TZ");
  if (variable != nullptr) return *variable == ':' ? variable + 1 : variable;
  std::error_code error;
  const std::string target = std::filesystem::read_symlink("/etc/localtime", error).string();
  constexpr std::string_view kFolder = "zoneinfo/";
  const auto folder = target.find(kFolder);
  return error || folder == std::string::npos ? "" : target.substr(folder + kFolder.size());
}

/// A zone as the system reads it from a file: the format TZif, version 2.
class ZoneFile {
 public:
  explicit ZoneFile(const std::vector<ReportZone::Change>& changes) : changes_(changes) {
    std::set<std::int32_t> others;
    for (const auto& change : changes) others.insert(change.offset);
    others.erase(changes.front().offset);
    offsets_.push_back(changes.front().offset);  // the first type holds before the first change
    offsets_.insert(offsets_.end(), others.begin(), others.end());
  }

  std::string bytes() {
    // The part for programs that know 32 bits only: one type, one character.
    header(0, 1, 1);
    text_.append(kTypeSize + 1, '\0');
    header(changes_.size() - 1, offsets_.size(), sizeof kAbbreviation);
    for (std::size_t at = 1; at < changes_.size(); ++at) number(changes_[at].since, 8);
    for (std::size_t at = 1; at < changes_.size(); ++at) {
      const auto type = std::find(offsets_.begin(), offsets_.end(), changes_[at].offset);
      text_ += static_cast<char>(type - offsets_.begin());
    }
    for (const std::int32_t offset : offsets_) {
      number(offset, 4);
      text_.append(2, '\0');  // no summer time, first abbreviation
    }
    text_.append(kAbbreviation, sizeof kAbbreviation);
    return text_ + "\n" + rule(changes_.back().offset) + "\n";
  }

 private:
  static constexpr char kAbbreviation[] = "LOC";
  static constexpr std::size_t kTypeSize = 6;

  void header(std::size_t changes, std::size_t types, std::size_t characters) {
    text_ += "TZif2";
    text_.append(15, '\0');
    for (const std::size_t count :
         {std::size_t{0}, std::size_t{0}, std::size_t{0}, changes, types, characters}) {
      number(static_cast<std::int64_t>(count), 4);
    }
  }

  /// Big-endian.
  void number(std::int64_t value, int size) {
    for (int byte = size - 1; byte >= 0; --byte) {
      text_ += static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * byte) & 255);
    }
  }

  /// What holds after the last change; its signs count to the west.
  static std::string rule(std::int32_t offset) {
    const std::int32_t seconds = std::abs(offset);
    return fmt::format("<{}>{}{}:{:02}:{:02}", kAbbreviation, offset > 0 ? "-" : "", seconds / 3600,
                       seconds / 60 % 60, seconds % 60);
  }

  const std::vector<ReportZone::Change>& changes_;
  std::vector<std::int32_t> offsets_;
  std::string text_;
};

[[noreturn]] void refuse(const char* what) {
  throw Refusal(ExitStatus::kUnreadable, std::string("the report cannot be understood: ") + what);
}

ReportZone::Change changeFrom(const Json& json) {
  if (!json.is_array() || json.size() != 2 || !json[0].is_number_integer() ||
      !json[1].is_number_integer()) {
    refuse("a change of the zone is no pair of whole numbers");
  }
  const auto since = json[0].get<std::int64_t>();
  const auto offset = json[1].get<std::int64_t>();
  const bool isNear = std::abs(static_cast<double>(since)) < 2 * kFarthest;
  if (!isNear || offset > kLargestOffset || offset < -kLargestOffset) {
    refuse("a change of the zone lies outside of all calendars");
  }
  return {since, static_cast<std::int32_t>(offset)};
}

}  // namespace

ReportZone ReportZone::around(std::vector<Date> instants) {
  std::vector<std::int64_t> times;
  for (const Date instant : instants) {
    const double time = std::floor(instant.unixSeconds());
    if (std::fabs(time) < kFarthest) times.push_back(static_cast<std::int64_t>(time));
  }
  std::sort(times.begin(), times.end());
  if (times.empty()) times.push_back(0);
  ReportZone zone{zoneName(), {}};
  std::int64_t known = times.front() - kMargin;  // up to here all is known
  add(zone.changes, known, offsetAt(known));
  for (const std::int64_t time : times) {
    if (time - kMargin > known) {
      known = time - kMargin;
      add(zone.changes, known, offsetAt(known));
    }
    for (; known < time + kMargin; known += kStep) {
      const std::int32_t offset = offsetAt(known + kStep);
      if (offset == zone.changes.back().offset) continue;
      add(zone.changes, changeBetween(known, known + kStep), offset);
    }
  }
  return zone;
}

ReportZone ReportZone::from(const Json& json) {
  if (!json.is_object() || !json.contains("changes") || !json["changes"].is_array()) {
    refuse("it has no zone");
  }
  ReportZone zone;
  if (json.contains("name") && json["name"].is_string()) zone.name = json["name"];
  const Json& changes = json["changes"];
  if (changes.empty() || changes.size() > kMostChanges)
    refuse("a zone without or with countless changes");
  std::set<std::int32_t> offsets;
  for (const Json& one : changes) {
    const Change change = changeFrom(one);
    if (!zone.changes.empty() && change.since <= zone.changes.back().since) {
      refuse("the changes of the zone are out of order");
    }
    zone.changes.push_back(change);
    offsets.insert(change.offset);
  }
  if (offsets.size() > kMostOffsets) refuse("a zone with countless offsets");
  return zone;
}

Json ReportZone::json() const {
  Json list = Json::array();
  for (const Change& change : changes) list.push_back(Json::array({change.since, change.offset}));
  return {{"name", name.empty() ? Json(nullptr) : Json(name)}, {"changes", list}};
}

ReportZone::InForce::InForce(const ReportZone& zone) {
  if (const char* const variable = std::getenv("TZ")) before_ = variable;
  file_ = ::memfd_create("zone", MFD_CLOEXEC);
  const std::string bytes = ZoneFile(zone.changes).bytes();
  if (file_ < 0 ||
      ::write(file_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    if (file_ >= 0) ::close(file_);
    throw Refusal(ExitStatus::kUnexpected,
                  fmt::format("the zone of the report cannot be set: {}", std::strerror(errno)));
  }
  ::setenv("TZ", fmt::format(":/proc/self/fd/{}", file_).c_str(), 1);
  ::tzset();
}

ReportZone::InForce::~InForce() {
  if (before_) {
    ::setenv("TZ", before_->c_str(), 1);
  } else {
    ::unsetenv("TZ");
  }
  ::tzset();
  ::close(file_);
}

}  // namespace kv::kvctl
