/// Asks the kernel whether it answers nftables requests of this process at all.
///
/// libnftables is no good at finding out: without a netlink socket it ends the process, and without
/// permission it writes to standard error by itself.

#pragma once

namespace VeloAgent {

/// Returns if the kernel answers. Throws NftPermissionError or NftReadError with its reason.
void probeNetfilter();

} // namespace VeloAgent
