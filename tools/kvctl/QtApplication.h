#pragma once

#include <QCoreApplication>
#include <memory>

namespace kv::kvctl {

/// The application object that script engines need. It leaves the C library's locale as it was, and
/// is quiet.
///
/// Threads    main thread; one at a time.
std::unique_ptr<QCoreApplication> makeQtApplication();

}  // namespace kv::kvctl
