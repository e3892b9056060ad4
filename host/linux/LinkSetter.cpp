#include "linux/LinkSetter.h"

#include <fcntl.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <utility>

namespace Host::Linux {
namespace {

std::string nameOf( int index ) { return "link " + std::to_string( index ); }

// keep_addr_on_down of one link, open for as long as this lives.
class KeepAddrFile {
 public:
   KeepAddrFile( LinkSetter & links, int index, int flags ) {
      // A link that is renamed again and again is left alone.
      for( int attempt = 0; attempt < 3 && error_ == EAGAIN; ++attempt ) open( links, index, flags );
   }
   KeepAddrFile( KeepAddrFile const & ) = delete;
   KeepAddrFile & operator=( KeepAddrFile const & ) = delete;
   ~KeepAddrFile() { close(); }

   [[nodiscard]] int fd() const { return fd_; }
   [[nodiscard]] int error() const { return error_; }  // errno, 0 when it is open

 private:
   void open( LinkSetter & links, int index, int flags ) {
      close();
      error_ = ENOENT;
      auto const link = links.link( index );
      // Under these two names stand the settings of all links, and of those to come. A name has no slash, and dots
      // within it mean nothing in a path.
      if( !link || link->name == "all" || link->name == "default" ) return;
      fd_ = ::open( ( "/proc/sys/net/ipv6/conf/" + link->name + "/keep_addr_on_down" ).c_str(), flags | O_CLOEXEC );
      if( fd_ < 0 ) {
         error_ = errno;
         return;
      }
      // The name may have passed to another link before the file was opened. From then on it is this link's, or
      // nobody's: when a link is renamed, the kernel withdraws its files.
      auto const now = links.link( index );
      error_ = now && now->name == link->name ? 0 : EAGAIN;
   }
   void close() {
      if( fd_ >= 0 ) ::close( std::exchange( fd_, -1 ) );
   }

   int fd_ = -1;
   int error_ = EAGAIN;
};

}  // namespace

std::optional<Link> LinkSetter::link( int index ) {
   Request request( RTM_GETLINK );
   request.putBody<ifinfomsg>().ifi_index = index;
   return answer( request );
}

std::optional<Link> LinkSetter::link( std::string const & name ) {
   // The kernel refuses longer ones and the empty one; none has them.
   if( name.empty() || name.size() >= IFNAMSIZ ) return std::nullopt;
   Request request( RTM_GETLINK );
   request.putBody<ifinfomsg>();
   mnl_attr_put_strz( &request.header(), IFLA_IFNAME, name.c_str() );
   auto found = answer( request );
   // It is found by its alternative names as well.
   return found && found->name == name ? found : std::nullopt;
}

std::optional<Link> LinkSetter::answer( Request & request ) {
   mnl_attr_put_u32( &request.header(), IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS );
   std::optional<Link> found;
   try {
      kernel_.ask( request, "asking for a link", [&found]( nlmsghdr const & message ) {
         if( message.nlmsg_type == RTM_NEWLINK ) found = parseLink( message );
      } );
   } catch( NetlinkError const & error ) {
      if( error.code().value() != ENODEV ) throw;
      return std::nullopt;
   }
   return found;
}

void LinkSetter::adminUpIs( int index, bool up ) {
   Request request( RTM_NEWLINK );
   auto & body = request.putBody<ifinfomsg>();
   body.ifi_index = index;
   body.ifi_change = IFF_UP;
   body.ifi_flags = up ? IFF_UP : 0;
   std::string const doing = "setting " + nameOf( index ) + ( up ? " up" : " down" );
   kernel_.ask( request, doing.c_str(), []( nlmsghdr const & ) {} );
}

std::optional<int> LinkSetter::keepAddrOnDown( int index ) {
   KeepAddrFile const file( *this, index, O_RDONLY );
   std::array<char, 32> text{};
   auto const bytes = file.error() ? -1 : ::read( file.fd(), text.data(), text.size() );
   int value = 0;
   if( bytes <= 0 || std::from_chars( text.data(), text.data() + bytes, value ).ec != std::errc() ) return std::nullopt;
   return value;
}

void LinkSetter::keepAddrOnDownIs( int index, int value ) {
   KeepAddrFile const file( *this, index, O_WRONLY );
   std::string const text = std::to_string( value ) + "\n";
   int error = file.error();
   if( !error && ::write( file.fd(), text.data(), text.size() ) < 0 ) error = errno;
   if( error ) throw NetlinkError( error, "setting keep_addr_on_down of " + nameOf( index ) );
}

}  // namespace Host::Linux
