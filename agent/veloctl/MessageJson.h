/// The messages of the interface as JSON, in both directions.
///
/// A message is an object with its fields under their own names; numbers are numbers (exact up to
/// 64 bits), enum values are words ("MODE_STREAMING" is "streaming"), names that are bytes are
/// text, with "_hex" beside it where the text cannot say it (agent/JsonText.h). A field that is not
/// there is left out, but a plain one of value 0 is written.
///
///    {"interface_id":7,"weight":30}

#pragma once

#include <google/protobuf/message.h>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace VeloCtl {

nlohmann::ordered_json jsonOf( const google::protobuf::Message & message );

/// Fills `message` from what people wrote. Strict: whatever the message has no place for is an
/// error, and a name in digits counts more than beside it as text. Throws WrongUse, with `file` and
/// the place in it: "weights.json: weights[3].weight: -1 is not a number from 0 to 4294967295".
void readJson( std::string_view text, google::protobuf::Message & message,
               const std::string & file );

/// The word for a value of an enum, as in JSON; digits for one that is not known here.
std::string wordOf( const google::protobuf::EnumDescriptor & type, int value );

} // namespace VeloCtl
