#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "platform/linux/Descriptor.h"
#include "tools/kvctl/TraceLines.h"
#include "tools/kvctl/TraceSource.h"
#include "tools/kvctl/TraceView.h"

namespace kv::kvctl {

/// Shows what is appended to the trace as it comes, until a signal asks for the end or nobody
/// reads the output any more. The file may be missing, be emptied, removed or replaced meanwhile.
///
/// It sleeps until the system tells of a change: of the open file, or of the folder while there is
/// no file. Only while the view holds a tick back does it look once more, a second after the last
/// line.
///
/// Threads    main thread only, where SIGINT, SIGTERM and SIGHUP are blocked meanwhile.
/// Errors     Refusal when the file or its folder cannot be watched.
class TraceFollower {
 public:
  /// `tell` takes remarks for the user, each without a line end.
  TraceFollower(TraceSource& source, TraceView& view, std::function<void(const std::string&)> tell);

  void run();

 private:
  void look();
  void lookOnceMore();
  void tryToOpen();
  void takeBytes();
  void watchFile();
  void watchFolder();
  void drop(int& watch);

  TraceSource& source_;
  TraceView& view_;
  const std::function<void(const std::string&)> tell_;
  TraceLines lines_;
  Descriptor inotify_;
  int fileWatch_ = -1;
  int folderWatch_ = -1;
  bool isBehind_ = false;
  std::string toldRefusal_;
};

}  // namespace kv::kvctl
