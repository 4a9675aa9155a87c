#include "agent/rpc/ServerCredentials.h"

#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <stdexcept>

namespace VeloAgent {

namespace {

std::string contentOf( const std::string & file ) {
   std::ifstream in( file, std::ios::binary );
   if ( !in ) {
      throw std::runtime_error( fmt::format( "cannot read {}: {}", file, std::strerror( errno ) ) );
   }
   return { std::istreambuf_iterator< char >( in ), {} };
}

/// gRPC takes whatever it is given, and then fails each client. So the files are tried beforehand.
class Trial {
 public:
   Trial() : context_( ::SSL_CTX_new( ::TLS_server_method() ) ) {
      // Nobody is there to be asked for one.
      const auto noPassword = []( char *, int, int, void * ) { return 0; };
      ::SSL_CTX_set_default_passwd_cb( context_, noPassword );
   }
   ~Trial() {
      ::SSL_CTX_free( context_ );
      ::ERR_clear_error();
   }
   Trial( const Trial & ) = delete;
   Trial & operator=( const Trial & ) = delete;

   void certificateAndKey( const std::string & certificate, const std::string & key ) {
      if ( ::SSL_CTX_use_certificate_chain_file( context_, certificate.c_str() ) != 1 ) {
         refuse( certificate + " holds no certificate in PEM form" );
      }
      if ( ::SSL_CTX_use_PrivateKey_file( context_, key.c_str(), SSL_FILETYPE_PEM ) != 1 ) {
         const bool foreign =
            ERR_GET_REASON( ::ERR_peek_last_error() ) == X509_R_KEY_VALUES_MISMATCH;
         refuse( foreign ? fmt::format( "{} and {} do not belong together", certificate, key )
                         : key + " holds no private key in PEM form, or one with a password" );
      }
   }

   void authorities( const std::string & file ) {
      if ( ::SSL_CTX_load_verify_locations( context_, file.c_str(), nullptr ) != 1 ) {
         refuse( file + " holds no certificate in PEM form" );
      }
   }

 private:
   [[noreturn]] static void refuse( const std::string & text ) { throw std::runtime_error( text ); }

   SSL_CTX * const context_;
};

} // namespace

std::shared_ptr< grpc::ServerCredentials > serverCredentialsFrom( const TlsFiles & files ) {
   if ( files.certificate.empty() ) { return grpc::InsecureServerCredentials(); }
   grpc::SslServerCredentialsOptions options(
      files.clientCa.empty() ? GRPC_SSL_DONT_REQUEST_CLIENT_CERTIFICATE
                             : GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY );
   options.pem_key_cert_pairs.push_back(
      { .private_key = contentOf( files.key ), .cert_chain = contentOf( files.certificate ) } );
   Trial trial;
   trial.certificateAndKey( files.certificate, files.key );
   if ( !files.clientCa.empty() ) {
      options.pem_root_certs = contentOf( files.clientCa );
      trial.authorities( files.clientCa );
   }
   return grpc::SslServerCredentials( options );
}

} // namespace VeloAgent
