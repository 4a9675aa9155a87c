/// How the programs here write JSON: on one line, and with names that may hold any bytes.
///
/// JSON text is UTF-8, a name need not be. What is no UTF-8 shows as U+FFFD, and the bytes
/// themselves follow as hexadecimal digits under the same key with "_hex" after it. So every line
/// can be parsed, and no two different names look the same.

#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace VeloAgent {

/// `json` as one line, without its end of line.
std::string lineOf( const nlohmann::ordered_json & json );

/// Enters `bytes` into `object` under `key`.
void addName( nlohmann::ordered_json & object, const std::string & key, std::string_view bytes );

/// Whether `bytes` are the same when written as JSON text and read again.
bool isUtf8( std::string_view bytes );

/// The bytes that `digits` stand for; none if these are no pairs of hexadecimal digits.
std::optional< std::string > bytesOfHex( std::string_view digits );

} // namespace VeloAgent
