// One interface that somebody has an account of, or that is monitored: its run of readings and what stands in the way
// of one, brought up to date once a turn.
//
// Owned by the ledger, which hands on each change as it happens (handle...) and calls apply() before it judges. Judging
// is a question without side effects.
#pragma once

#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "evidence/Readings.h"
#include "evidence/Run.h"
#include "evidence/Sources.h"
#include "evidence/Trend.h"
#include "kel/FetchAhead.h"
#include "kel/Few.h"

namespace Evidence {

// What happens to the interface, for the windows of those who have an account of it.
class WatchedListener {
 public:
   virtual void onReading( Run::Step const & step ) = 0;
   // What is settled: each reading once, in order, some time after onReading().
   virtual void onSettled( double from, double to, Interface::IntfRates const & rates ) = 0;
   virtual void onBreak( Run::Step const & step ) = 0;
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
   // Of the reading that counts, if there is one; bit/s.
   [[nodiscard]] Interface::IntfRates rates() const { return readings_.latest(); }
   // As of the last apply().
   [[nodiscard]] Kel::Ptr<IntfMaintenanceProfile::Config const> const & profile() const { return profile_; }
   [[nodiscard]] bool linkThere() const { return link_ != nullptr; }
   [[nodiscard]] bool monitored() const { return monitor_ != nullptr; }
   // Of a loud interface: whether it falls. Computed when it is asked for, so that a sample pays nothing for it.
   [[nodiscard]] Pace pace();
   // How often the monitor samples now, in seconds; 0 while nobody does.
   [[nodiscard]] double sampleInterval() const;

   // All readings go into what is made of them.
   void settle();
   // The next sample will do so.
   [[nodiscard]] bool settlesSoon() const { return readings_.nearlyFull(); }

   // From memory, what samples are read from; and where they go together.
   void fetchSources() const;
   void fetchTrend() const {
      if( settlesSoon() && trend_ ) Kel::fetch( *trend_ );
   }

   void handleLink( LinkChange change );
   void handleMonitor( MonitorChange change );
   void handleEntry();
   void handleMembers() { membersMoved_ = true; }
   void handleProfile() { recordsMoved_ = true; }
   // Takes in what has changed in this turn: records, profile, members, and the sample if there was one. True when it
   // was more than a sample. `counterGeneration`: as the sources say it.
   bool apply( uint32_t counterGeneration );

   // A sampled Ethernet link of which nobody can judge otherwise, and the reading that counts is loud.
   [[nodiscard]] bool plainlyLoud() const { return plain_ && up_ && run_.loud(); }
   // `seen`: since the request of whoever has the account.
   [[nodiscard]] Judgement judge( bool seen ) const;
   // Why it is up and nobody samples it; empty when somebody does.
   [[nodiscard]] std::string unwatched() const;
   // What a quiet reading's run, or an absence, still lacks of the load interval, in seconds and 0 or more.
   [[nodiscard]] double lacks( Judgement const & judgement ) const;

 private:
   void lookUpRecords();
   void lookAtLink();
   void applyProfile();
   void applyMembers();
   void applySample();
   void tellOf( Run::Step const & step );
   void keep( Run::Step const & step );
   void interrupt( char const * cause );
   // Whether all counters were read at `time`, and how often they have started again.
   [[nodiscard]] bool freshAt( double time, uint64_t & restarts );
   void lookUpRows();
   [[nodiscard]] std::optional<double> awayFrom() const;
   [[nodiscard]] bool isPlain() const;
   [[nodiscard]] Judgement judgeUp() const;

   // What a sample needs comes first, and close together: a thousand interfaces are more than the caches hold.
   WatchedListener & listener_;
   Lumo::IntfId const intf_;
   uint32_t samples_ = 0;  // the monitor's count at the sample that was taken in last
   double sampleTime_ = 0;
   bool recordsMoved_ = true;
   bool membersMoved_ = true;
   bool plain_ = false;  // an Ethernet interface that is up and sampled
   bool plainKnown_ = false;
   bool up_ = false;         // as the link's record says
   bool down_ = false;       // likewise
   bool judgeable_ = false;  // there is a threshold
   bool complete_ = false;   // it is made of some rows, and all have counters
   double threshold_ = 0;    // bit/s, by which the run was judged until now
   // The records that it rests on, null where there is none: a sample costs no look-up.
   Kel::Ptr<Maintenance::MonIntfStatus const> monitor_;
   Kel::Ptr<IntfMaintenanceProfile::Config const> profile_;
   // The counters that samples are made of, of those rows that have any.
   Kel::Few<KelQuill::CounterTable::Row const *> counters_;
   uint32_t countersAt_ = 0;     // generation at which they were looked up
   bool countersKnown_ = false;  // they were
   bool entered_ = false;        // has our error-disable entry
   Run run_;
   // By which load interval the trend is to have the readings, in seconds; none: it is not.
   std::optional<uint32_t> trendInterval_;
   Readings readings_;
   // The rest
   std::unique_ptr<Trend> trend_;  // null: there are no readings of it
   Kel::Ptr<Interface::IntfStatus const> link_;
   Kel::Few<Lumo::IntfId> rows_;
   std::optional<double> awaySince_;
   Sources const & sources_;
   NeverWatched const & neverWatched_;
};

}  // namespace Evidence
