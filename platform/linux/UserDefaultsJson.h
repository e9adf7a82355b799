#pragma once
// The JSON form of user defaults: one object from key to a value tagged with its kind.
//   {"DrovelNotify.lastSync": {"date": "2026-11-21T10:00:00.123456789Z"},
//    "DrovelNotify.minSyncInterval": {"double": 3600.0}, "n": {"integer": 3},
//    "b": {"bool": true}, "s": {"string": "text"}, "d": {"data": "<base64>"},
//    "m": {"dictionary": {"lat": {"double": 52.1}}}, "a": {"array": [{"string": "x"}]}}
// Non-finite doubles are written as {"double": "nan"}, {"double": "inf"}, {"double": "-inf"};
// dates in UTC with nanoseconds.

#include <string>
#include <string_view>

#include "drovel/core/Error.h"
#include "drovel/platform/UserDefaults.h"

namespace drovel::platform {

std::string encodeUserDefaults(const DefaultsDictionary& values);
// Reads the text back; fails on anything malformed (nesting deeper than 64 included).
core::Result<DefaultsDictionary> decodeUserDefaults(std::string_view json);

}  // namespace drovel::platform
