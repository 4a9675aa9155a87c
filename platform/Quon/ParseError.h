#pragma once

#include <cstddef>
#include <stdexcept>
#include <string_view>

#include "Lumo/Export.h"
#include "Lumo/String.h"

namespace Quon {

/// A text that is not the text form of the value asked for.
///
/// `what()` says where and why, e.g.
/// `attribute "longKey.policyKey.name", position 57: expected a string in single quotes, found "7"`
class VELO_PLATFORM_EXPORT ParseError final : public std::runtime_error {
 public:
   ParseError( std::string_view path, std::size_t position, std::string_view reason );
   ~ParseError() override;

   /// The attributes that were being read, outermost first, joined by dots; empty when it is the
   /// frame of the outermost value that is wrong.
   std::string_view path() const { return path_; }

   /// Offset in bytes of what could not be read.
   std::size_t position() const { return position_; }

 private:
   Lumo::String path_;
   std::size_t position_;
};

} // namespace Quon
