// The links of a box that exists only in memory: what was said of each last, and which of them are held down.
//
// Owned by the world, and there also while no service runs. What was said stays until something else is said; a link
// that is held, which is all that taking one down administratively means here, is reported down whatever was said,
// until it is let go, or until somebody raises it by hand. While the records follow, each change is reported into them
// at once; while nobody is there to report, as when the agent is away, the links change alone, and the records are
// brought into step when they follow again.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "links/LinkRecords.h"
#include "links/LinkSwitch.h"
#include "world/InventedCounters.h"

namespace Sim {

class InventedLinks final : public Service::LinkSwitch {
 public:
   // What is said of a link. What is absent stays as it is; a link that is new is then up, without members, and of the
   // kind that its name tells.
   struct Said {
      std::optional<bool> up;  // true also raises a link that is held
      std::optional<Lumo::IntfKind> kind;
      std::optional<uint16_t> vlanId;
      std::optional<std::vector<std::string>> members;
      // True, of one that is held: it stays down when it is let go, until false or a state is said.
      std::optional<bool> late = {};
   };

   // Both outlive this.
   InventedLinks( Service::LinkRecords & records, InventedCounters & counters )
      : records_( records ), counters_( counters ) {}

   // The link as it would be after this, as the host reports it when nothing holds it.
   [[nodiscard]] Service::LinkReport after( Lumo::IntfId intf, Said const & said ) const;
   // Throws KelQuill::TableError when there is no room for the counters of a new link; nothing has changed then.
   void linkIs( Lumo::IntfId intf, Said const & said );
   // There is no such link any more; absent is no error.
   void linkDel( Lumo::IntfId intf );

   // Called after each link that something was said of, or that was held or let go.
   void onLinkIs( std::function<void( Lumo::IntfId )> onLink ) { onLink_ = std::move( onLink ); }

   // Down is held; up is as it was said last. A link has no setting of its addresses.
   [[nodiscard]] std::optional<Service::LinkSwitch::Link> link( Lumo::IntfId intf ) const override;
   [[nodiscard]] std::optional<Service::LinkSwitch::Link> link( int index ) const override;
   [[nodiscard]] std::string adminUpIs( int index, bool up ) override;
   [[nodiscard]] std::optional<int> keepAddrOnDown( int ) const override { return std::nullopt; }
   [[nodiscard]] std::string keepAddrOnDownIs( int, int ) override { return "an invented link has no addresses"; }

   // Whether the records follow; when they begin to, they are brought into step first.
   void recordsFollow( bool follow );

 private:
   struct State {
      int index;
      Service::LinkReport said;
      bool held = false;
      bool late = false;
   };

   void report( Lumo::IntfId intf );
   [[nodiscard]] Lumo::IntfId intfOf( int index ) const;

   Service::LinkRecords & records_;
   InventedCounters & counters_;
   std::map<Lumo::IntfId, State> links_;
   int lastIndex_ = 0;
   std::function<void( Lumo::IntfId )> onLink_;
   std::set<Lumo::IntfId> unreported_;  // what changed while the records did not follow
   bool follow_ = true;
};

}  // namespace Sim
