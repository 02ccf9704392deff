#include "tools/kvctl/Check.h"

#include "tools/kvctl/FileProblems.h"
#include "tools/kvctl/RecordProblems.h"
#include "tools/kvctl/ScheduleProblems.h"
#include "tools/kvctl/StarvationProblems.h"

namespace kv::kvctl {

Problems problemsOf(const CheckSubject& subject) {
  Problems problems;
  addFileProblems(subject, problems);
  const WeekdayRule weekdays(subject);
  for (const SetEntry& set : subject.sets().all()) {
    addRecordProblems(subject, set, problems);
    addScheduleProblems(subject, weekdays, set, problems);
  }
  addStarvationProblems(subject, problems);
  return problems;
}

}  // namespace kv::kvctl
