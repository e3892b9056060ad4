// One interface that somebody has an account of, or that is monitored: its run of readings and what stands in the way
// of one, brought up to date once a turn.
//
// Owned by the ledger, which hands on each change as it happens (handle...) and calls apply() before it judges. Judging
// is a question without side effects.
#pragma once

#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "evidence/RateSeries.h"
#include "evidence/Readings.h"
#include "evidence/Run.h"
#include "evidence/Sources.h"
#include "evidence/Trend.h"
#include "kel/FetchAhead.h"
#include "kel/Few.h"

namespace Evidence {

// What the interface looks like to one account.
struct Judgement {
   Verdict verdict = Verdict::waiting;
   bool settled = false;
   std::optional<double> countsFrom = std::nullopt;  // s, of down and gone

   bool operator==( Judgement const & ) const = default;
};

// Until when that holds.
struct Outlook {
   Judgement judgement;
   double changes = std::numeric_limits<double>::infinity();  // s: when waiting alone changes it, at the earliest
};

class Watched : public RateSource {
 public:
   // What is said of it in all its accounts, where that is plain.
   enum class Said : uint8_t { other, loud, quiet, settled };
   // Of whoever judges it, kept here with what else each sample needs.
   struct Marks {
      bool touched : 1 = false;
      bool kept : 1 = true;
      uint8_t waits : 2 = 0;  // in which of two queues for time to pass, 1 and 2; 0: in none
      Said said = Said::other;
   };

   [[nodiscard]] Lumo::IntfId intf() const { return intf_; }
   [[nodiscard]] Run const & run() const { return run_; }
   [[nodiscard]] Marks & marks() { return marks_; }
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
   void settle() final;
   // The next sample will do so.
   [[nodiscard]] bool settlesSoon() const { return readings_.nearlyFull(); }

   // From memory, what samples are read from and written to.
   void fetchSources() const;

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
   // Likewise, and the readings are quiet. None of any other.
   struct Quiet {
      bool settled;
      double stale;  // s, until when the last one counts
   };
   [[nodiscard]] std::optional<Quiet> plainlyQuiet() const {
      return plain_ && up_ && !run_.loud() ? quiet() : std::nullopt;
   }
   // When what goes stale then does.
   [[nodiscard]] static double changesAfter( double stale );
   // `seen`: since the request of whoever has the account.
   [[nodiscard]] Outlook judge( bool seen ) const;
   // Why it is up and nobody samples it; empty when somebody does.
   [[nodiscard]] std::string unwatched() const;
   // What a quiet reading's run, or an absence, still lacks of the load interval, in seconds and 0 or more.
   [[nodiscard]] double lacks( Judgement const & judgement ) const;

 protected:
   Watched( Lumo::IntfId intf, Sources const & sources );

   // What happens to the interface, for the windows of those who have an account of it.
   // A quiet reading is told where readingsToldIs() asks for it.
   virtual void onReading( Run::Step const & step ) = 0;
   // What is settled: each reading once, in order, some time after onReading().
   virtual void onSettled( double from, double to, Interface::IntfRates const & rates ) = 0;
   virtual void onBreak( Run::Step const & step ) = 0;
   virtual void onIntfEvent( char const * kind, std::string const & text ) = 0;

   void readingsToldIs( bool told ) { readingsTold_ = told; }
   // From memory, where readings go together, in two steps.
   void fetchReadings() const { Kel::fetch( readings_ ); }
   void fetchTrend() const {
      if( trend_ ) Kel::fetch( *trend_ );
   }

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
   [[nodiscard]] Outlook judgeUp() const;
   [[nodiscard]] std::optional<Quiet> quiet() const;

   // What a sample needs comes first, in two cache lines and that of its reading: thousands of interfaces are more than
   // the caches hold.
   uint32_t samples_ = 0;  // the monitor's count at the sample that was taken in last
   double sampleTime_ = 0;
   double threshold_ = 0;  // bit/s, by which the run was judged until now
   // The records that it rests on, null where there is none: a sample costs no look-up.
   Kel::Ptr<Maintenance::MonIntfStatus const> monitor_;
   Kel::Ptr<IntfMaintenanceProfile::Config const> profile_;
   // The counters that samples are made of, of those rows that have any.
   Kel::Few<KelQuill::CounterTable::Row const *> counters_;
   bool recordsMoved_ : 1 = true;
   bool membersMoved_ : 1 = true;
   bool plain_ : 1 = false;  // an Ethernet interface that is up and sampled
   bool plainKnown_ : 1 = false;
   bool up_ : 1 = false;             // as the link's record says
   bool down_ : 1 = false;           // likewise
   bool judgeable_ : 1 = false;      // there is a threshold
   bool complete_ : 1 = false;       // it is made of some rows, and all have counters
   bool countersKnown_ : 1 = false;  // they were looked up
   bool entered_ : 1 = false;        // has our error-disable entry
   bool readingsTold_ : 1 = false;
   Marks marks_;
   uint32_t countersAt_ = 0;  // generation at which they were looked up
   Run run_;
   Readings readings_;  // each for the trend of its kind
   // The rest
   std::unique_ptr<Trend> trend_;  // null: there are no readings of it
   Kel::Ptr<Interface::IntfStatus const> link_;
   Kel::Few<Lumo::IntfId> rows_;
   double awaySince_ = never;  // s
   Sources const & sources_;
   Lumo::IntfId const intf_;

   static constexpr double never = std::numeric_limits<double>::infinity();
};

}  // namespace Evidence
