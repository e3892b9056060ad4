// What the ledger hears: links, monitors, error-disable entries, profiles, memberships, counters and units, each
// through the records that say so.
//
// Owned by the ledger. Tells its listener which interface a change concerns, at the change and from inside the write;
// the listener notes it and does nothing more. Answers what stands there now.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "kel/ReactorMap.h"
#include "quill/EthIntfCounterReaderSm.h"
#include "records/Errdisable.h"
#include "state/MaintenanceState.h"

namespace Evidence {

enum class LinkChange { up, away, madeAgain };       // away: down, gone, or nobody knows
enum class MonitorChange { touched, began, ended };  // touched: another state or profile

// The listener's own of an interface, by which it is told of samples without a look-up.
struct Subject;

class SourcesListener {
 public:
   // Its monitor has published one. `noted` stays with the interface's monitor and is the listener's to write: 0 at
   // first.
   virtual void onSample( Subject & subject, uint32_t & noted ) = 0;
   virtual void onLink( Lumo::IntfId intf, LinkChange change ) = 0;
   virtual void onMonitor( Lumo::IntfId intf, MonitorChange change ) = 0;
   virtual void onEntry( Lumo::IntfId intf ) = 0;  // of the error-disable cause, came or went
   virtual void onIntf( Lumo::IntfId intf ) = 0;   // selected profile or counters
   virtual void onMembers() = 0;                   // of some port-channel or VLAN
   virtual void onUnit( Kel::Name const & unit ) = 0;
   virtual void onProfiles() = 0;

 protected:
   ~SourcesListener() = default;
};

class Sources {
 public:
   using Counter = Interface::IntfCounterMasquerade::IntfCounter;

   // Why an interface can never be watched; empty when it can, or when nothing is known that forbids it.
   using NeverWatched = std::function<std::string( Lumo::IntfId )>;

   // All outlive this.
   Sources( Maintenance::MaintenanceState const & state, Kel::Ptr<KelQuill::EntityManager> const & counters,
            NeverWatched neverWatched, SourcesListener & listener );
   ~Sources();

   // With what the listener is told of the interface's samples; null: it is not. To be said again when a monitor began:
   // whatever was said before was said of another.
   void subjectIs( Lumo::IntfId intf, Subject * subject );

   [[nodiscard]] std::string neverWatched( Lumo::IntfId intf ) const { return neverWatched_( intf ); }
   // Since when the link has been away, in seconds: nothing for one that is up or that nobody has heard of. What was
   // away when this was made counts from then.
   [[nodiscard]] std::optional<double> awaySince( Lumo::IntfId intf ) const;
   [[nodiscard]] Kel::Ptr<Interface::IntfStatus const> link( Lumo::IntfId intf ) const;
   [[nodiscard]] Kel::Ptr<Maintenance::MonIntfStatus const> monitor( Lumo::IntfId intf ) const;
   // Whether the interface has our error-disable entry; and when that was removed, of a link that is away since before.
   [[nodiscard]] bool entered( Lumo::IntfId intf ) const;
   [[nodiscard]] std::optional<double> letGo( Lumo::IntfId intf ) const;
   // The profile in force: the one that is selected, also in the turn in which it was, before the monitor has taken it
   // over. Null when there is none.
   [[nodiscard]] Kel::Ptr<IntfMaintenanceProfile::Config const> profile( Lumo::IntfId intf ) const;
   // As the operator named it.
   [[nodiscard]] Kel::String8 profileName( IntfMaintenanceProfile::Config const & profile ) const;
   [[nodiscard]] Maintenance::Unit::State unitState( Kel::Name const & unit ) const;  // unknown for none

   // The Ethernet interfaces whose counters an interface's samples are made of; and their counters, null for none.
   [[nodiscard]] std::vector<Lumo::IntfId> rowsOf( Lumo::IntfId intf ) const;
   [[nodiscard]] Kel::Ptr<Counter const> counter( Lumo::IntfId row ) const;
   [[nodiscard]] uint32_t counterGeneration() const;  // moves when rows come or go

 private:
   class KelLinkDir;
   class KelLink;
   class KelMonitorDir;
   class KelMonitor;
   class KelCauseDir;
   class KelCause;
   class KelLagConfig;
   class KelPhyIntf;
   class KelVlanDir;
   class KelVlan;
   class KelProfileDir;
   class KelProfile;
   class KelDefaultProfile;
   class KelIntfToGroupDir;
   class KelIntfToGroup;
   class KelUnitDir;
   class KelUnit;
   class KelCounters;

   void causeIs();
   void handleEntry( Lumo::IntfId intf );
   void lagIs( Lumo::IntfId member, Lumo::IntfId lag );
   [[nodiscard]] Kel::Ptr<Bridging::VlanStatus const> vlanOf( Lumo::IntfId intf ) const;
   void addRows( Lumo::IntfId intf, std::set<Lumo::IntfId> & rows ) const;

   Maintenance::MaintenanceState const & state_;
   NeverWatched const neverWatched_;
   SourcesListener & listener_;
   Kel::Ptr<Interface::EthIntfCounterReaderSm> const counters_;
   std::unordered_map<Lumo::IntfId, Lumo::IntfId> lagOf_;
   std::unordered_map<Lumo::IntfId, std::set<Lumo::IntfId>> lagMembers_;
   Kel::Ptr<Errdisable::CauseStatus const> cause_;   // null until the plug-in has introduced it
   std::unordered_map<Lumo::IntfId, double> letGo_;  // s; gone when the link comes up

   Kel::ReactorMap<KelLink, Lumo::IntfId, Sources> links_;
   Kel::ReactorMap<KelMonitor, Lumo::IntfId, Sources> monitors_;
   Kel::ReactorMap<KelPhyIntf, Lumo::IntfId, Sources> phyIntfs_;
   Kel::ReactorMap<KelVlan, uint32_t, Sources> vlans_;
   Kel::ReactorMap<KelProfile, Kel::String8, Sources> profiles_;
   Kel::ReactorMap<KelIntfToGroup, Lumo::IntfId, Sources> intfToGroups_;
   Kel::ReactorMap<KelUnit, Kel::Name, Sources> units_;
   std::unique_ptr<KelLinkDir> linkDir_;
   std::unique_ptr<KelMonitorDir> monitorDir_;
   std::unique_ptr<KelCause> causeReactor_;
   std::unique_ptr<KelCauseDir> causeDir_;
   std::unique_ptr<KelLagConfig> lagConfig_;
   std::unique_ptr<KelVlanDir> vlanDir_;
   std::unique_ptr<KelProfileDir> profileDir_;
   std::unique_ptr<KelDefaultProfile> defaultProfile_;
   std::unique_ptr<KelIntfToGroupDir> intfToGroupDir_;
   std::unique_ptr<KelUnitDir> unitDir_;
   std::unique_ptr<KelCounters> counterDir_;
};

}  // namespace Evidence
