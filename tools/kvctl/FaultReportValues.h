#pragma once

#include <cstddef>

#include "platform/PropertyList.h"
#include "tools/kvctl/Output.h"

namespace kv::kvctl {

/// Values of documents as JSON from which they come back bit for bit, but for the kind of a NaN.
///
/// Strings, booleans, arrays and dictionaries are what they are in JSON; integers have no point or
/// exponent, reals have one. Everything else is an object with one key that begins with "$":
///   {"$date": seconds since 2001-01-01 UTC}, {"$data": base64}, {"$uid": number}
///   {"$real": "nan"}, and "inf" and "-inf"; a date may hold such a word too
///   {"$entries": [key, value, ...]} for a dictionary of more than `kMostKeys` keys
/// A key of a dictionary that begins with "$" gets another one in front.
///
/// Threads    any.
/// Errors     valueFrom() throws Refusal for JSON that is no such value.

inline constexpr std::size_t kMostKeys = 512;

Json valueJson(const PropertyList& value);
PropertyList valueFrom(const Json& json);

/// An instant by itself, in seconds since 2001-01-01 UTC.
Json dateJson(Date date);
Date dateFrom(const Json& json);

}  // namespace kv::kvctl
