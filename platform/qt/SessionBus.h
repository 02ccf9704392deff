#pragma once

namespace kv {

/// Whether this session has a message bus, as its environment says. Without one Qt must not be
/// asked for it: it would try to start one and wait for that.
///
/// Threads    any.
bool hasSessionBus();

}  // namespace kv
