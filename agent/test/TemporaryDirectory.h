/// A directory for the files of one test, gone with it.

#pragma once

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace VeloAgent {

class TemporaryDirectory {
 public:
   TemporaryDirectory() : path_( testing::TempDir() + "velo-XXXXXX" ) {
      if ( !::mkdtemp( path_.data() ) ) { throw std::runtime_error( "cannot make " + path_ ); }
   }
   ~TemporaryDirectory() { std::filesystem::remove_all( path_ ); }
   TemporaryDirectory( const TemporaryDirectory & ) = delete;
   TemporaryDirectory & operator=( const TemporaryDirectory & ) = delete;

   std::string operator/( const std::string & name ) const { return path_ + "/" + name; }
   const std::string & path() const { return path_; }

 private:
   std::string path_;
};

} // namespace VeloAgent
