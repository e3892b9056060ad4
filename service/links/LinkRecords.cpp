#include "links/LinkRecords.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace Service {

using Interface::IntfOperStatus;
using Lumo::IntfId;
using Lumo::IntfKind;

namespace {

// The number in a name like "Vlan20", which stands in it when a report gives none; 0 for any other name.
uint16_t vlanIdByName( std::string_view name ) {
   constexpr std::string_view prefix = "Vlan";
   uint16_t id = 0;
   if( !name.starts_with( prefix ) ) return id;
   char const * const end = name.data() + name.size();
   auto const [rest, error] = std::from_chars( name.data() + prefix.size(), end, id );
   return error == std::errc() && rest == end ? id : uint16_t{ 0 };
}

}  // namespace

LinkReport LinkRecords::Link::report() const {
   return { up, kind, reportedVlanId, members ? members->reported : std::vector<std::string>() };
}

std::vector<IntfId> const & LinkRecords::Link::intfs() const {
   static std::vector<IntfId> const none;
   return members ? members->intfs : none;
}

LinkRecords::Link LinkRecords::linkOf( IntfId intf, LinkReport const & report ) {
   Link link{ .up = report.up, .kind = report.kind, .reportedVlanId = report.vlanId };
   if( !report.members.empty() ) {
      auto const members = std::make_shared<Members>( Members{ report.members, {} } );
      std::unordered_set<IntfId> named;
      for( std::string const & name : report.members ) {
         if( IntfId const member( name ); named.insert( member ).second ) members->intfs.push_back( member );
      }
      link.members = members;
   }
   uint16_t const id = report.vlanId != 0 ? report.vlanId : vlanIdByName( intf.name() );
   bool const isVlan = report.kind == IntfKind::vlan && id >= 1 && id <= 4094;
   if( isVlan ) link.vlanId = id;
   return link;
}

// What a name says by its form stands as long as the report says the same. A VLAN link without a VLAN is one of the
// kinds that nobody samples: sampling looks its VLAN up.
void LinkRecords::declare( IntfId intf, Link const & link ) {
   IntfKind const kind = link.kind == IntfKind::vlan && !link.vlanId ? IntfKind::other : link.kind;
   if( kind == IntfKind::vlan || kind != intf.kind() ) IntfId::declare( intf.name(), kind, link.vlanId.value_or( 0 ) );
}

void LinkRecords::linkIs( IntfId intf, LinkReport const & report ) {
   auto const present = links_.find( intf );
   if( present != links_.end() && present->second.report() == report ) return;
   Link const link = linkOf( intf, report );
   std::vector<IntfId> former;
   if( present != links_.end() ) {
      Link const & before = present->second;
      bool const another = before.kind != report.kind || before.vlanId != link.vlanId;
      if( another ) {
         remove( intf );
      } else {
         former = before.intfs();
      }
   }
   declare( intf, link );
   bool const isNew = links_.insert_or_assign( intf, link ).second;
   if( isNew && link.vlanId ) ++vlanLinks_[*link.vlanId];
   // As a member of others before it has members of its own: its kind may be none that they can have.
   goneIs( intf, false );
   membersAre( intf, link, former );
   auto const operStatus = report.up ? IntfOperStatus::up : IntfOperStatus::down;
   if( auto const record = state_.intfStatus->intfStatus( intf ) ) {
      record->operStatusIs( operStatus );
   } else {
      Kel::Ptr<Interface::IntfStatus> const made( new Interface::IntfStatus( intf ) );
      made->operStatusIs( operStatus );
      state_.intfStatus->intfStatusIs( made );
   }
   tell( intf );
}

void LinkRecords::linkDel( IntfId intf ) {
   remove( intf );
   tell( intf );
}

std::optional<LinkReport> LinkRecords::link( IntfId intf ) const {
   auto const found = links_.find( intf );
   return found == links_.end() ? std::nullopt : std::optional( found->second.report() );
}

void LinkRecords::tell( IntfId intf ) const {
   if( onLink_ ) onLink_( intf );
}

void LinkRecords::remove( IntfId intf ) {
   // First, so that nobody finds a link that is up and made of nothing.
   state_.intfStatus->intfStatusDel( intf );
   auto const found = links_.extract( intf );
   if( !found ) return;
   Link const & link = found.mapped();
   for( IntfId const member : link.intfs() ) {
      memberDel( member, intf, link );
      publish( member, link );
   }
   if( link.vlanId && --vlanLinks_[*link.vlanId] == 0 ) {
      vlanLinks_.erase( *link.vlanId );
      vlanDel( *link.vlanId );
   }
   goneIs( intf, true );
}

void LinkRecords::linksAre( std::map<IntfId, LinkReport> const & reports ) {
   std::vector<IntfId> gone;
   for( auto const & [intf, link] : links_ ) {
      if( !reports.contains( intf ) ) gone.push_back( intf );
   }
   for( IntfId const intf : gone ) linkDel( intf );
   for( auto [intf, status] : state_.intfStatus->intfStatusIterator() ) {
      if( !reports.contains( intf ) ) state_.intfStatus->intfStatusDel( intf );
   }
   for( auto const & [intf, report] : reports ) linkIs( intf, report );
   // What stands here and no report speaks of.
   for( auto [member, record] : state_.lagConfig->phyIntfIterator() ) publishLag( member );
   for( auto [id, vlan] : state_.vlanStatus->vlanStatusIterator() ) {
      for( auto [member, present] : vlan->intfIterator() ) {
         if( !inVlan( member, id ) ) vlan->intfDel( member );
      }
      if( !vlanLinks_.contains( id ) ) state_.vlanStatus->vlanStatusDel( id );
   }
}

// Members

void LinkRecords::membersAre( IntfId intf, Link const & link, std::vector<IntfId> const & former ) {
   // Without members, too: that the VLAN is there is something else than that it is not.
   if( link.vlanId ) state_.vlanStatus->vlanStatusIs( *link.vlanId );
   std::unordered_set<IntfId> left( former.begin(), former.end() );
   for( IntfId const member : link.intfs() ) {
      // One that was reported before makes no new claim.
      if( left.erase( member ) == 0 ) memberIs( member, intf, link );
      publish( member, link );
   }
   for( IntfId const member : former ) {
      if( !left.contains( member ) ) continue;
      memberDel( member, intf, link );
      publish( member, link );
   }
}

void LinkRecords::memberIs( IntfId member, IntfId intf, Link const & of ) {
   bool const unknown = member.kind() == IntfKind::other && !links_.contains( member ) && !member.empty();
   if( unknown ) IntfId::declare( member.name(), IntfKind::ethernet );
   if( of.kind != IntfKind::portChannel && !of.vlanId ) return;
   Membership & membership = memberships_[member];
   if( of.kind == IntfKind::portChannel ) membership.lags.push_back( intf );
   if( of.vlanId ) ++membership.vlans[*of.vlanId];
}

void LinkRecords::memberDel( IntfId member, IntfId intf, Link const & of ) {
   auto const found = memberships_.find( member );
   if( found == memberships_.end() ) return;
   Membership & membership = found->second;
   if( of.kind == IntfKind::portChannel ) std::erase( membership.lags, intf );
   auto const links = of.vlanId ? membership.vlans.find( *of.vlanId ) : membership.vlans.end();
   if( links != membership.vlans.end() && --links->second == 0 ) membership.vlans.erase( links );
   if( membership.lags.empty() && membership.vlans.empty() ) memberships_.erase( found );
}

void LinkRecords::goneIs( IntfId member, bool gone ) {
   auto const found = memberships_.find( member );
   if( found == memberships_.end() ) return;
   found->second.gone = gone;
   // A copy: publishing tells others, who may report.
   auto const vlans = found->second.vlans;
   if( !found->second.lags.empty() ) publishLag( member );
   for( auto const & [vlanId, links] : vlans ) publishVlanMember( member, vlanId );
}

// Publishing. Each looks at the memberships afresh, so that it does not matter what changed.

void LinkRecords::publish( IntfId member, Link const & of ) {
   if( of.kind == IntfKind::portChannel ) publishLag( member );
   if( of.vlanId ) publishVlanMember( member, *of.vlanId );
}

void LinkRecords::publishLag( IntfId member ) {
   IntfId const lag = lagOf( member );
   if( lag.empty() ) {
      state_.lagConfig->phyIntfDel( member );
   } else if( auto const record = state_.lagConfig->phyIntf( member ) ) {
      record->lagIs( lag );
   } else {
      Kel::Ptr<Lag::PhyIntf> const made( new Lag::PhyIntf( member ) );
      made->lagIs( lag );
      state_.lagConfig->phyIntfIs( made );
   }
}

void LinkRecords::publishVlanMember( IntfId member, uint16_t vlanId ) {
   auto const vlan = state_.vlanStatus->vlanStatus( vlanId );
   if( !vlan ) return;
   if( inVlan( member, vlanId ) ) {
      vlan->intfIs( member, true );
   } else {
      vlan->intfDel( member );
   }
}

void LinkRecords::vlanDel( uint32_t vlanId ) {
   if( auto const vlan = state_.vlanStatus->vlanStatus( vlanId ) ) vlan->intfDelAll();
   state_.vlanStatus->vlanStatusDel( vlanId );
}

// The port-channel that an Ethernet link counts for; empty when there is none. Where several claim it, the one that did
// so last has it: the others' reports are older.
IntfId LinkRecords::lagOf( IntfId member ) const {
   auto const found = memberships_.find( member );
   if( found == memberships_.end() || found->second.gone || member.kind() != IntfKind::ethernet ) return {};
   return found->second.lags.empty() ? IntfId() : found->second.lags.back();
}

bool LinkRecords::inVlan( IntfId member, uint32_t vlanId ) const {
   auto const found = memberships_.find( member );
   if( found == memberships_.end() || found->second.gone ) return false;
   if( member.kind() != IntfKind::ethernet && member.kind() != IntfKind::portChannel ) return false;
   return found->second.vlans.contains( static_cast<uint16_t>( vlanId ) );
}

// Trouble

std::string LinkRecords::neverWatched( IntfId intf ) const {
   auto const found = links_.find( intf );
   if( found == links_.end() ) return {};
   Link const & link = found->second;
   switch( link.kind ) {
      case IntfKind::ethernet: return {};
      case IntfKind::subIntf: return "it is a sub-interface, and those are not sampled";
      case IntfKind::cpu: return "it is the box's own end, which is not sampled";
      case IntfKind::other: return "it is of a kind that is not sampled";
      case IntfKind::portChannel:
      case IntfKind::vlan: break;
   }
   bool const isLag = link.kind == IntfKind::portChannel;
   if( !isLag && !link.vlanId ) return "it is a VLAN link whose VLAN id is not between 1 and 4094";
   for( IntfId const member : link.intfs() ) {
      std::string const trouble = isLag ? lagTrouble( intf, member ) : vlanTrouble( member );
      if( !trouble.empty() ) return "its member " + std::string( member.name() ) + " " + trouble;
   }
   return {};
}

std::string LinkRecords::lagTrouble( IntfId lag, IntfId member ) const {
   if( memberships_.at( member ).gone ) return {};
   if( member.kind() != IntfKind::ethernet ) return "is no Ethernet link, so nobody measures what it carries";
   IntfId const other = lagOf( member );
   return other == lag ? std::string() : "counts for " + std::string( other.name() ) + " now";
}

std::string LinkRecords::vlanTrouble( IntfId member ) const {
   if( memberships_.at( member ).gone || member.kind() == IntfKind::ethernet ) return {};
   if( member.kind() != IntfKind::portChannel ) {
      return "is neither an Ethernet link nor a port-channel, so nobody measures what it carries";
   }
   std::string const trouble = neverWatched( member );
   return trouble.empty() ? trouble : "cannot be watched: " + trouble;
}

}  // namespace Service
