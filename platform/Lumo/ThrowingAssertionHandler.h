#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "Lumo/Assert.h"

namespace Lumo {

/// A failed assertion as an exception. `what()` is the text that the default handler prints.
class VELO_PLATFORM_EXPORT AssertionThrown final : public std::logic_error {
 public:
   explicit AssertionThrown( const AssertionFailure & failure )
      : std::logic_error( failure.text() ),
        condition_( failure.condition ),
        message_( failure.message ) {}

   const std::string & condition() const { return condition_; }
   const std::string & message() const { return message_; }

 private:
   std::string condition_;
   std::string message_;
};

/// Turns failed assertions of a scope into exceptions, and remembers them.
///
///    Lumo::ThrowingAssertionHandler assertions;
///    EXPECT_THROW( table.check(), Lumo::AssertionThrown );
///    EXPECT_EQ( assertions.failures().back().condition(), "version_ == hashMap_->version()" );
///
/// For tests on one thread. An assertion inside a destructor (or other `noexcept` function) cannot
/// be thrown out of it: that ends the process, so it takes a death test.
class ThrowingAssertionHandler final : public AssertionHandler {
 public:
   ThrowingAssertionHandler() : before_( assertionHandlerIs( this ) ) {}
   ~ThrowingAssertionHandler() override { assertionHandlerIs( before_ ); }

   ThrowingAssertionHandler( const ThrowingAssertionHandler & ) = delete;
   ThrowingAssertionHandler & operator=( const ThrowingAssertionHandler & ) = delete;

   [[noreturn]] void assertionFailed( const AssertionFailure & failure ) override {
      throw failures_.emplace_back( failure );
   }

   /// What failed so far, in order; also what somebody caught on the way.
   const std::vector< AssertionThrown > & failures() const { return failures_; }

 private:
   AssertionHandler * before_;
   std::vector< AssertionThrown > failures_;
};

} // namespace Lumo
