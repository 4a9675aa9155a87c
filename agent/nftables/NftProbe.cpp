#include "agent/nftables/NftProbe.h"

#include "agent/nftables/NftTable.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace VeloAgent {

namespace {

/// "Which generation is your rule set?": the smallest question there is.
struct Question {
   nlmsghdr header = { .nlmsg_len = sizeof( Question ),
                       .nlmsg_type = ( NFNL_SUBSYS_NFTABLES << 8 ) | NFT_MSG_GETGEN,
                       .nlmsg_flags = NLM_F_REQUEST,
                       .nlmsg_seq = 1,
                       .nlmsg_pid = 0 };
   nfgenmsg family = { .nfgen_family = AF_UNSPEC, .version = NFNETLINK_V0, .res_id = 0 };
};

struct Refusal {
   nlmsghdr header;
   nlmsgerr error;
};

class Socket {
 public:
   Socket() : fd_( ::socket( AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_NETFILTER ) ) {}
   ~Socket() {
      if ( fd_ >= 0 ) { ::close( fd_ ); }
   }
   Socket( const Socket & ) = delete;
   Socket & operator=( const Socket & ) = delete;

   int fd() const { return fd_; }

 private:
   int fd_;
};

/// The kernel's answer: 0, or the errno value of its refusal. It answers within the send.
int answer() {
   const Socket socket;
   const Question question;
   if ( ::send( socket.fd(), &question, sizeof question, 0 ) < 0 ) { return errno; }
   alignas( nlmsghdr ) std::array< char, 4096 > buffer = {};
   const ssize_t size = ::recv( socket.fd(), buffer.data(), buffer.size(), MSG_DONTWAIT );
   if ( size < 0 ) { return errno; }

   Refusal refusal = {};
   if ( static_cast< std::size_t >( size ) < sizeof refusal ) { return 0; }
   std::memcpy( &refusal, buffer.data(), sizeof refusal );
   return refusal.header.nlmsg_type == NLMSG_ERROR ? -refusal.error.error : 0;
}

} // namespace

void probeNetfilter() {
   const int error = answer();
   if ( error == EPERM || error == EACCES ) { throw NftPermissionError( std::strerror( error ) ); }
   if ( error != 0 ) {
      throw NftReadError( std::string( "the kernel answers no nftables requests: " ) +
                          std::strerror( error ) );
   }
}

} // namespace VeloAgent
