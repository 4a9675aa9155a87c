#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "VeloSdkRpc/Export.h"

/// The errors that tell an SDK client of its misuse, and the one door through which they leave.
///
///    std::exception
///       error                                message
///          invalid_argument_error            + argument
///             invalid_range_error            + value
///          configuration_error
///             unconfigured_agent_error       + agent
///          unsupported_error                 + feature
///          no_scoped_lock_obtained_error
///
///    velo::panic( velo::configuration_error( "..." ) );      // thrown as what it is
///
/// Values: a copy has every member of what it was copied from. Their type information is shared
/// across library borders, so each is caught by its own class or by any base. Every class can be
/// made from the message alone; `what()` is that message and nothing else.
///
/// Thread     any; one object by one thread at a time
namespace velo {

/// The root of the family. Abstract: what is thrown is always one of the others.
class VELO_SDK_RPC_EXPORT error : public std::exception {
 public:
   /// `message` is for people: what was wrong, and with what.
   explicit error( std::string message );

   /// The message. Valid while this object lives and is not assigned to.
   const char * what() const noexcept final;

   /// Throws a copy of this object as its most derived class. For code that holds a mere `error &`.
   [[noreturn]] virtual void raise() const = 0;

 private:
   std::string message_;
};

/// An argument that means nothing, whatever the state of the system.
class VELO_SDK_RPC_EXPORT invalid_argument_error : public error {
 public:
   /// `argument` is the argument's name.
   explicit invalid_argument_error( std::string message, std::string argument = {} );

   /// The name of the argument; may be empty.
   const std::string & argument() const { return argument_; }

   [[noreturn]] void raise() const override;

 private:
   std::string argument_;
};

/// An argument outside of its range.
class VELO_SDK_RPC_EXPORT invalid_range_error : public invalid_argument_error {
 public:
   /// `value` is what the argument was.
   explicit invalid_range_error( std::string message, std::string argument = {},
                                 std::uint64_t value = 0 );

   /// What the argument was, in the unit of that argument.
   std::uint64_t value() const { return value_; }

   [[noreturn]] void raise() const override;

 private:
   std::uint64_t value_;
};

/// What was asked for does not fit what is configured, or the order of the calls.
class VELO_SDK_RPC_EXPORT configuration_error : public error {
 public:
   using error::error;

   [[noreturn]] void raise() const override;
};

/// An agent that must be configured for this is not.
class VELO_SDK_RPC_EXPORT unconfigured_agent_error : public configuration_error {
 public:
   /// `agent` is the agent's name.
   explicit unconfigured_agent_error( std::string message, std::string agent = {} );

   /// The name of the agent; may be empty.
   const std::string & agent() const { return agent_; }

   [[noreturn]] void raise() const override;

 private:
   std::string agent_;
};

/// This switch cannot do it.
class VELO_SDK_RPC_EXPORT unsupported_error : public error {
 public:
   /// `feature` is what the switch cannot do.
   explicit unsupported_error( std::string message, std::string feature = {} );

   /// What it cannot do; may be empty.
   const std::string & feature() const { return feature_; }

   [[noreturn]] void raise() const override;

 private:
   std::string feature_;
};

/// The SDK's lock (`sdk_scoped_lock`) is not held where it must be.
class VELO_SDK_RPC_EXPORT no_scoped_lock_obtained_error : public error {
 public:
   using error::error;

   [[noreturn]] void raise() const override;
};

/// Reports `problem` to the client: throws it through its `raise()`. Never returns.
[[noreturn]] VELO_SDK_RPC_EXPORT void panic( const error & problem );

} // namespace velo
