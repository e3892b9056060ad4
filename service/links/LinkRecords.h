// Links as a host reports them, as the records that the plug-in and the service read: interface status, port-channel
// and VLAN membership.
//
// Owned by whoever knows the links: maintd's feed, the simulator's world. A name gets its kind before a record bears
// it. Only what can be sampled is published as a member: Ethernet links and port-channels, and VLAN ids from 1 to 4094.
// What a link is made of beyond that is unknown traffic, so neverWatched() says so of it.
//
// Members may be reported before they are links themselves; until then they are taken for Ethernet links where their
// names say nothing else. A member that goes carries nothing any more and is none until it is there again.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "records/IntfId.h"
#include "state/MaintenanceState.h"

namespace Service {

struct LinkReport {
   bool up = false;
   Lumo::IntfKind kind = Lumo::IntfKind::ethernet;
   uint16_t vlanId = 0;               // of a VLAN link; 0: as its name says
   std::vector<std::string> members;  // of a port-channel or VLAN link

   bool operator==( LinkReport const & ) const = default;
};

class LinkRecords {
 public:
   // `state` outlives this.
   explicit LinkRecords( Maintenance::MaintenanceState & state ) : state_( state ) {}

   // The link is there, and as reported: membership first, then its state. One of another kind or VLAN id than before
   // is another link, and takes the place of the former.
   void linkIs( Lumo::IntfId intf, LinkReport const & report );
   // There is no such link any more. Absent is no error.
   void linkDel( Lumo::IntfId intf );
   // These are all links that there are: other records go, also those that somebody else left in the database.
   void linksAre( std::map<Lumo::IntfId, LinkReport> const & reports );

   // As it was reported last; none when there is no such link.
   [[nodiscard]] std::optional<LinkReport> link( Lumo::IntfId intf ) const;
   // Called after each link that has come, gone or changed. Replaces the one before.
   void onLinkIs( std::function<void( Lumo::IntfId )> onLink ) { onLink_ = std::move( onLink ); }

   // Why nobody can ever sample this interface: a sub-interface, a link of another kind that has no counters to sample,
   // a port-channel or VLAN with such members, a VLAN id that is none. Empty when it can be, and for what is no link at
   // all. To be read as "NAME: it is ...".
   [[nodiscard]] std::string neverWatched( Lumo::IntfId intf ) const;

 private:
   struct Members {
      std::vector<std::string> reported;
      std::vector<Lumo::IntfId> intfs;  // each once
   };
   // Most have no members, and no room for them.
   struct Link {
      [[nodiscard]] LinkReport report() const;
      [[nodiscard]] std::vector<Lumo::IntfId> const & intfs() const;

      bool up = false;
      Lumo::IntfKind kind = Lumo::IntfKind::other;
      uint16_t reportedVlanId = 0;
      std::optional<uint16_t> vlanId = {};          // of a VLAN link, where it is one
      std::shared_ptr<Members const> members = {};  // null for none
   };
   // One interface as a member. A port may be in thousands of VLANs.
   struct Membership {
      std::vector<Lumo::IntfId> lags;         // port-channels that report it, the latest last
      std::map<uint16_t, std::size_t> vlans;  // VLAN ids that links report it for, and how many do
      bool gone = false;                      // it was a link and is none
   };

   void remove( Lumo::IntfId intf );
   void tell( Lumo::IntfId intf ) const;
   [[nodiscard]] static Link linkOf( Lumo::IntfId intf, LinkReport const & report );
   static void declare( Lumo::IntfId intf, Link const & link );
   void membersAre( Lumo::IntfId intf, Link const & link, std::vector<Lumo::IntfId> const & former );
   void memberIs( Lumo::IntfId member, Lumo::IntfId intf, Link const & of );
   void memberDel( Lumo::IntfId member, Lumo::IntfId intf, Link const & of );
   void goneIs( Lumo::IntfId member, bool gone );

   void publish( Lumo::IntfId member, Link const & of );
   void publishLag( Lumo::IntfId member );
   void publishVlanMember( Lumo::IntfId member, uint16_t vlanId );
   void vlanDel( uint32_t vlanId );
   [[nodiscard]] Lumo::IntfId lagOf( Lumo::IntfId member ) const;
   [[nodiscard]] bool inVlan( Lumo::IntfId member, uint32_t vlanId ) const;

   [[nodiscard]] std::string lagTrouble( Lumo::IntfId lag, Lumo::IntfId member ) const;
   [[nodiscard]] std::string vlanTrouble( Lumo::IntfId member ) const;

   Maintenance::MaintenanceState & state_;
   std::unordered_map<Lumo::IntfId, Link> links_;
   std::unordered_map<Lumo::IntfId, Membership> memberships_;  // by member
   std::unordered_map<uint32_t, std::size_t> vlanLinks_;       // how many links each VLAN id has
   std::function<void( Lumo::IntfId )> onLink_;
};

}  // namespace Service
