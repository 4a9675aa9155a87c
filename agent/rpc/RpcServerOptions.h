/// Where the RPC server listens, and whom it lets in.

#pragma once

#include <string>

namespace VeloAgent {

struct RpcServerOptions {
   /// "unix:PATH"; empty: nobody is served.
   std::string listen;
};

} // namespace VeloAgent
