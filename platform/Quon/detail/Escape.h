#pragma once

#include <string>
#include <string_view>

namespace Quon::Impl {

/// Appends `bytes` as the inside of a Python string literal framed by `quote`: printable ASCII as
/// it is, `\\`, the escaped quote, `\n`, `\r`, `\t`, and every other byte as `\xNN`.
void appendEscaped( std::string & out, std::string_view bytes, char quote );

} // namespace Quon::Impl
