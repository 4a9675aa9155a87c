/// How the server proves who it is, and whom it believes: the files of the options, read and
/// checked before the first client comes.

#pragma once

#include "agent/rpc/RpcServerOptions.h"

#include <grpcpp/security/server_credentials.h>
#include <memory>

namespace VeloAgent {

/// Without a certificate in `files`: no TLS. Throws std::runtime_error with a text that names the
/// file and says what would be right.
std::shared_ptr< grpc::ServerCredentials > serverCredentialsFrom( const TlsFiles & files );

} // namespace VeloAgent
