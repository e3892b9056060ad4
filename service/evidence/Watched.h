// One interface that somebody has an account of, or that is monitored: its run of readings and what stands in the way
// of one, brought up to date once a turn.
//
// Owned by the ledger, which hands on each change as it happens (handle...) and calls apply() before it judges. Judging
// is a question without side effects.
#pragma once

#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "evidence/Run.h"
#include "evidence/Sources.h"
#include "evidence/Trend.h"

namespace Evidence {

// What happens to the interface, for the windows of those who have an account of it.
class WatchedListener {
 public:
   virtual void onReading( Run::Step const & step ) = 0;
   virtual void onBreak() = 0;
   virtual void onIntfEvent( char const * kind, std::string const & text ) = 0;

 protected:
   ~WatchedListener() = default;
};

// What the interface looks like to one account.
struct Judgement {
   Verdict verdict = Verdict::waiting;
   bool settled = false;
   std::optional<double> countsFrom = std::nullopt;           // s, of down and gone
   double changes = std::numeric_limits<double>::infinity();  // s: when waiting alone changes it, at the earliest

   // Whatever time is left.
   [[nodiscard]] bool sameAs( Judgement const & other ) const {
      return verdict == other.verdict && settled == other.settled && countsFrom == other.countsFrom;
   }
};

class Watched final {
 public:
   using NeverWatched = std::function<std::string( Lumo::IntfId )>;

   Watched( Lumo::IntfId intf, Sources const & sources, NeverWatched const & neverWatched, WatchedListener & listener );

   [[nodiscard]] Lumo::IntfId intf() const { return intf_; }
   [[nodiscard]] Run const & run() const { return run_; }
   // As of the last apply().
   [[nodiscard]] Kel::Ptr<IntfMaintenanceProfile::Config const> const & profile() const { return profile_; }
   [[nodiscard]] bool linkThere() const { return link_ != nullptr; }
   [[nodiscard]] bool monitored() const { return monitor_ != nullptr; }
   // Of a loud interface: whether it falls. Computed when it is asked for, so that a sample pays nothing for it.
   [[nodiscard]] Pace pace() const;
   // How often the monitor samples now, in seconds; 0 while nobody does.
   [[nodiscard]] double sampleInterval() const;

   void handleLink( LinkChange change );
   void handleMonitor( MonitorChange change );
   void handleEntry();
   void handleMembers() { membersMoved_ = true; }
   void handleProfile() { recordsMoved_ = true; }
   // Takes in what has changed in this turn: records, profile, members, and the sample if there was one. True when it
   // was more than a sample.
   bool apply();

   // `seen`: since the request of whoever has the account.
   [[nodiscard]] Judgement judge( bool seen ) const;
   // Why it is up and nobody samples it; empty when somebody does.
   [[nodiscard]] std::string unwatched() const;
   // What a quiet reading's run, or an absence, still lacks of the load interval, in seconds and 0 or more.
   [[nodiscard]] double lacks( Judgement const & judgement ) const;

 private:
   void lookUpRecords();
   void applyProfile();
   void applyMembers();
   void applySample();
   void tellOf( Run::Step const & step );
   void interrupt( char const * cause );
   // Whether all counters were read at `time`, and how often they have started again.
   [[nodiscard]] bool freshAt( double time, uint64_t & restarts );
   void lookUpRows();
   [[nodiscard]] bool complete() const;  // it is made of some rows, and all have counters
   [[nodiscard]] std::optional<double> awayFrom() const;
   [[nodiscard]] bool isPlain() const;
   [[nodiscard]] Judgement judgeUp() const;

   // What a sample needs comes first, and close together: a thousand interfaces are more than the caches hold.
   Lumo::IntfId const intf_;
   bool recordsMoved_ = true;
   bool membersMoved_ = true;
   bool plain_ = false;  // an Ethernet interface that is up and sampled
   bool plainKnown_ = false;
   uint32_t samples_ = 0;  // the monitor's count at the sample that was taken in last
   double sampleTime_ = 0;
   // The records that it rests on, null where there is none: a sample costs no look-up.
   Kel::Ptr<Maintenance::MonIntfStatus const> monitor_;
   Kel::Ptr<IntfMaintenanceProfile::Config const> profile_;
   Kel::Ptr<Interface::IntfStatus const> link_;
   std::optional<double> threshold_;  // bit/s, by which the run was judged until now
   Run run_;
   // The counters that samples are made of: of the rows, null for none.
   std::vector<Kel::Ptr<Sources::Counter const>> counters_;
   std::optional<uint32_t> countersAt_;  // generation at which they were looked up
   std::vector<Lumo::IntfId> rows_;
   // The link
   std::optional<double> awaySince_;
   bool entered_ = false;  // has our error-disable entry
   Sources const & sources_;
   NeverWatched const & neverWatched_;
   WatchedListener & listener_;
   Trend trend_;  // of loud readings only
};

}  // namespace Evidence
