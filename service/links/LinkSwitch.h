// What a host can do to its links: say how one stands, take it down, set it up.
//
// Implemented by the host, over rtnetlink or in an invented world; called by LinkControl alone, which decides. A call
// is carried out before it returns, or has failed for good: nothing is tried again here, and nothing is remembered.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "records/IntfId.h"

namespace Service {

class LinkSwitch {
 public:
   struct Link {
      int index = 0;         // above 0; a link that is made again under the same name has another
      bool adminUp = false;  // administratively; says nothing of a carrier

      bool operator==( Link const & ) const = default;
   };

   virtual ~LinkSwitch() = default;

   // As it stands now; none when there is none of that name, or of that index. Throw std::system_error where that
   // cannot be told.
   [[nodiscard]] virtual std::optional<Link> link( Lumo::IntfId intf ) const = 0;
   [[nodiscard]] virtual std::optional<Link> link( int index ) const = 0;

   // Administratively. Returns why it could not be done, empty when it was.
   [[nodiscard]] virtual std::string adminUpIs( int index, bool up ) = 0;

   // The kernel's keep_addr_on_down of the link (Documentation/networking/ip-sysctl.rst): whether it keeps its IPv6
   // addresses when it is taken down. None where it has no such setting.
   [[nodiscard]] virtual std::optional<int> keepAddrOnDown( int index ) const = 0;
   [[nodiscard]] virtual std::string keepAddrOnDownIs( int index, int value ) = 0;
};

}  // namespace Service
