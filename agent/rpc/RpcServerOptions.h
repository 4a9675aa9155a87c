/// Where the RPC server listens, whom it lets in, and how much of everything.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace VeloAgent {

/// Files in PEM form.
struct TlsFiles {
   std::string certificate; ///< Of the server, with those that lead to its authority behind it.
   std::string key;
   std::string clientCa; ///< Clients need a certificate of one of these; empty: they need none.
};

struct RpcLimits {
   std::uint32_t messageBytes = 4 * 1024 * 1024; ///< The largest request.
   std::uint32_t streams = 100;                  ///< Calls at a time, of one connection.
   std::uint32_t connections = 256;
   /// A client with a call in progress that was silent for so long is asked whether it is there
   /// still, and its connection closed if it does not answer in time.
   std::chrono::milliseconds keepaliveTime{ 60'000 };
   std::chrono::milliseconds keepaliveTimeout{ 20'000 };
};

struct RpcServerOptions {
   /// One of the forms of ListenAddress.h; empty: the default address.
   std::string listen;
   TlsFiles tls{}; ///< Without a certificate: no TLS.
   RpcLimits limits{};
};

} // namespace VeloAgent
