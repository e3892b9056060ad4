// The box's links as the service's link records, and as rows of the counter table.
//
// Owned by the box's service, driven by the link monitor inside turns. A link has a record exactly while it exists, and
// an Ethernet link a row as well. That a known link went up, down or away is on record at once, so that nobody misses a
// flap. What it takes the whole picture to say, the kind and the members, is worked out once for all that was pending:
// so links that come many at a time cost each the same.
//
// A link for which the table has no room goes without counters, until a row is given up or there is room again.
#pragma once

#include <functional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "feed/LinkKinds.h"
#include "linux/LinkTable.h"
#include "quill/CounterWriter.h"

namespace Host {

// Takes what an operator should hear of; may be empty.
using Tell = std::function<void( std::string const & text, bool isTrouble )>;
// Hears of each link that has come, gone or changed in any way, with its name; may be empty.
using OnLink = std::function<void( Lumo::IntfId intf )>;

class LinkFeed final : public Linux::LinkListener {
 public:
   // Both outlive this.
   LinkFeed( Service::LinkRecords & links, KelQuill::CounterWriter & counters, Tell tell, OnLink onLink = {} );

   // The interface with that kernel index; empty where there is none.
   [[nodiscard]] Lumo::IntfId interface( int index ) const;
   // Another whenever one of these is.
   [[nodiscard]] uint32_t generation() const { return generation_; }

   void onLink( Linux::Link const & link ) override;
   void onLinkGone( Linux::Link const & link ) override;
   void onVlans( int port ) override;
   void onSettled( Linux::LinkTable const & table ) override;

 private:
   // Where a link stands among the others, and what of it they look at.
   struct Place {
      int master = 0;
      int below = 0;          // of a VLAN link
      std::string_view kind;  // one of kinds_
      int vlanId = 0;
      bool vlanAware = false;

      bool operator==( Place const & ) const = default;
   };
   struct Known {
      Lumo::IntfId intf;
      bool published = false;
      Place place;
      Service::LinkReport report;  // as published
   };
   using Indices = std::unordered_map<int, std::set<int>>;

   [[nodiscard]] std::string_view kept( std::string const & kind ) { return *kinds_.insert( kind ).first; }
   void placeIs( int index, Place & present, Place const & place );
   void touch( int index );
   [[nodiscard]] std::vector<Linux::Link const *> stale( Linux::LinkTable const & table ) const;
   void publish( Linux::Link const & link, Service::LinkReport const & report );

   void rowIs( Lumo::IntfId intf );
   void rowDel( Lumo::IntfId intf );
   [[nodiscard]] std::string rowTrouble( Lumo::IntfId intf );
   void retryRows();

   Service::LinkRecords & links_;
   KelQuill::CounterWriter & counters_;
   Tell const tell_;
   OnLink const onLink_;
   uint32_t generation_ = 0;
   std::set<std::string, std::less<>> kinds_;  // all there ever were: the kernel has some dozen
   std::unordered_map<int, Known> known_;
   Indices belonging_;               // by master
   Indices above_;                   // VLAN links by the link below
   std::set<int> touched_;           // they, and what is above them, are to be looked at when it settles
   std::set<Lumo::IntfId> rowless_;  // for want of room
};

}  // namespace Host
