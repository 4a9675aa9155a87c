/// Why veloctl ends, and the exit codes that say so. docs/man/veloctl.1 promises them.
///
/// Whatever goes wrong leaves as a Failure: one line that says what was wrong and what would be
/// right.

#pragma once

#include <stdexcept>
#include <string>

namespace VeloCtl {

enum class ExitCode {
   done = 0,
   refused = 1,     ///< The agent refused or failed, or the output could not be written.
   wrongUse = 2,    ///< An argument was wrong, or a file is not what it should be.
   unavailable = 3, ///< No agent there, not ready yet, shutting down, the connection broke.
   noAnswer = 4     ///< The agent did not answer in time.
};

class Failure : public std::runtime_error {
 public:
   Failure( ExitCode code, const std::string & text ) : std::runtime_error( text ), code_( code ) {}

   ExitCode code() const { return code_; }

 private:
   ExitCode code_;
};

class WrongUse final : public Failure {
 public:
   explicit WrongUse( const std::string & text ) : Failure( ExitCode::wrongUse, text ) {}
};

/// A call ended with an error.
class CallFailed final : public Failure {
 public:
   /// `retryable`: the same call may well succeed a little later.
   CallFailed( ExitCode code, const std::string & text, bool retryable )
      : Failure( code, text ), retryable_( retryable ) {}

   bool retryable() const { return retryable_; }

 private:
   bool retryable_;
};

} // namespace VeloCtl
