// Questions about one link and orders to it, carried out by the kernel before the call returns.
//
// Owned by KernelLinks. Asks the kernel each time and keeps nothing, so what it says is true now, whatever the link
// monitor has heard so far. Uses a socket of its own, with acknowledgements. Needs the right to configure the network
// for orders, and none for questions.
#pragma once

#include <optional>
#include <string>

#include "linux/Link.h"
#include "linux/NetlinkExchange.h"

namespace Host::Linux {

class LinkSetter {
 public:
   // The link of this index or, as its first and not as an alternative one, this name; none when there is none. Throw
   // NetlinkError where the kernel does not say.
   [[nodiscard]] std::optional<Link> link( int index );
   [[nodiscard]] std::optional<Link> link( std::string const & name );

   // Administratively; nothing else of the link is touched. Throws NetlinkError.
   void adminUpIs( int index, bool up );

   // keep_addr_on_down of the link: above 0 it keeps its static IPv6 addresses when it is taken down. None when there
   // is no such link or it has no such setting. A link that is renamed meanwhile is not mixed up with another.
   [[nodiscard]] std::optional<int> keepAddrOnDown( int index );
   // Throws std::system_error.
   void keepAddrOnDownIs( int index, int value );

 private:
   [[nodiscard]] std::optional<Link> answer( Request & request );

   NetlinkExchange kernel_;
};

}  // namespace Host::Linux
