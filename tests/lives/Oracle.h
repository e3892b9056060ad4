// The judge of one life: knows what the lines said, sees what is published, and says when the service promised what it
// could not know, or kept from an operator what it had to know.
//
// The truth is what the lines said (Told.h). Of the product's records it reads when samples were taken, which links
// are held down, what links are published as, and which state a unit is in; never how the service came to an answer.
//
// Two questions are kept apart, because what is uncertain must count against both answers:
//
//    proven   an answer "settled" or "ready" is justified now: by true averages over each time between samples for the
//             whole load interval, or by a link that was down or gone for as long, or is held down
//    due      nothing whatever has happened for so long that any other answer is wrong
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Follow.h"
#include "Told.h"
#include "world/World.h"

namespace Lives {

// What times that are sums of doubles may be off by, s.
inline constexpr double rounding = 5e-7;

struct Fault {
   std::string kind;  // a few words, the same for each occurrence
   std::string text;
};

// How often what makes a life worth living has happened.
using Tally = std::map<std::string, unsigned>;

class Oracle {
 public:
   explicit Oracle( Sim::World & world );
   ~Oracle();

   // Around each line, and for each answer to it.
   void before( boost::json::object const & line );
   void after( boost::json::object const & line );
   void answer( boost::json::object const & answer );

   [[nodiscard]] std::optional<Fault> const & fault() const { return fault_; }  // the first one
   [[nodiscard]] Tally const & tally() const { return tally_; }

   // For trying out the judge: it believes in so many times the traffic.
   static double exaggeration;

 private:
   enum class State { unknown, active, entering, inMaintenance, failed, leaving };
   enum class Published { gone, down, up };

   // What a sample found of each Ethernet link that the interface is made of.
   struct Found {
      size_t row;
      Octets octets;
      unsigned restarts;
      bool valueless;
   };
   struct Sample {
      double time;
      std::vector<Found> found;
   };
   // What is known of an interface, whatever units it is in.
   struct Known {
      Published published = Published::gone;
      double notUpSince = 0;
      bool entry = false;         // error-disabled
      bool raised = false;        // a line has said "up" since
      bool made = false;          // it is another link than before the line, which nobody has raised
      double entryTaken = 0;      // when the last entry was removed
      uint64_t entryTakenIn = 0;  // the turn of the loop in which it was
      bool monitored = false;
      bool passive = false;
      bool stopped = false;  // monitored, but not sampled any more
      double monitoredSince = 0;
      std::string monitorProfile;

      std::optional<Sample> sample;  // the latest of this monitor
      std::optional<Cause> spoiled;  // why what lies between it and the next one is not known
      std::optional<double> quietSince;
      double longestSpan = 0;  // of the readings since then
      double readingFrom = 0;  // what the last reading covers
      double lastReading = 0;
      bool loud = false;    // the last reading
      bool certain = true;  // and that can be said, to the last digit
      Rates rates;          // of it

      std::optional<Profile> profile;  // in force
      double eventAt = 0;              // the last time at which anything at all happened to it
      double calmSince = 0;            // nothing but clearly quiet traffic; infinite while there is
   };
   struct Stay {
      State state = State::active;
      double stateSince = 0;
      double requested = 0;
      std::set<size_t> leftOut;
      std::optional<double> verifyBegan;
      bool restartedSince = false;
      bool ready = false, disturbed = false;  // as published
   };
   struct Request {
      size_t unit;
      std::set<size_t> leftOutBefore;
      std::string expected;  // the result; empty: any
   };

   // Lines
   void handleTold( size_t port, Cause cause );
   void happened( size_t port, double settles = 0 );
   void handleConfig();
   void handleStart();
   void takeUpMonitors();
   void handleVerb( boost::json::object const & line, bool alone );
   void raise( boost::json::object const & links );
   void enter( boost::json::object const & line, bool alone );
   // Records
   void followAccounts();
   void handleMonitor( Kel::Entity const * record, Kel::AttributeInfo const * attribute, std::string const & key );
   void handleLink( Kel::Entity const * record, Kel::AttributeInfo const * attribute, std::string const & key );
   void handleUnit( Kel::Entity const * record, Kel::AttributeInfo const * attribute, std::string const & key );
   void handleProgress( Kel::Entity const * record, Kel::AttributeInfo const * attribute, std::string const & key );
   void handleEntries( Kel::Entity const * record, Kel::AttributeInfo const * attribute, std::string const & key );
   void handleAccounts( Kel::Entity const * record, Kel::AttributeInfo const * attribute, std::string const & key );
   void unitStateIs( size_t unit, State state );
   void entered( size_t unit );
   void becameDisturbed( size_t unit );

   // Runs of readings
   void handleSample( size_t port );
   void asPublished( size_t port );
   [[nodiscard]] Sample sampleNow( size_t port ) const;
   [[nodiscard]] std::optional<Cause> spoiler( size_t port, Sample const & sample ) const;
   [[nodiscard]] Rates average( size_t port, Sample const & from, Sample const & to ) const;
   void reading( size_t port, Sample const & sample );
   void breakRun( size_t port, Cause cause );

   // Profiles
   void reselect();
   [[nodiscard]] std::string selected( size_t port ) const;

   // The two questions. An empty text is a yes, any other says why not.
   [[nodiscard]] std::string proven( size_t unit, size_t port ) const;
   [[nodiscard]] std::string provenQuiet( size_t port ) const;
   [[nodiscard]] std::string provenInOctets( size_t port ) const;
   [[nodiscard]] bool due( size_t unit, size_t port ) const;
   [[nodiscard]] bool dueQuiet( size_t port ) const;
   [[nodiscard]] bool seen( size_t unit, size_t port, bool joined ) const;
   [[nodiscard]] bool onTheWay( size_t unit ) const;
   [[nodiscard]] bool anyLoud( size_t unit ) const;
   void expectProven( size_t unit, std::string const & said );
   void expectDue( size_t unit, bool ready );

   // Answers
   void judge( boost::json::object const & answer );
   void requested( boost::json::object const & answer );
   void status( boost::json::object const & said );
   void account( size_t unit, size_t port, boost::json::object const & said );
   void reading( size_t port, bool quiet, boost::json::object const & said );

   // Between lines
   void noteCalm();
   void checkLinks();
   void checkProfiles();
   void checkDeadlines();
   void checkDisturbed();
   void checkMonitors();

   void count( std::string const & what ) { ++tally_[what]; }
   void expect( bool holds, char const * kind, std::initializer_list<std::string_view> text = {} );
   [[nodiscard]] static char const * publishedText( Published published );
   [[nodiscard]] double now() const { return world_.loop().now(); }
   [[nodiscard]] Known & known( size_t port );
   [[nodiscard]] std::string const & name( size_t port ) const { return told_.ports()[port].name; }
   [[nodiscard]] std::optional<size_t> unit( std::string_view name ) const;

   Sim::World & world_;
   Told told_;
   std::vector<Known> known_;
   std::vector<Stay> stays_;                                  // by unit of the configuration
   std::map<std::pair<std::string, size_t>, double> joined_;  // when which unit was given which interface
   std::vector<size_t> asked_;                                // the units of lines "ready" not answered yet
   bool running_ = false;
   bool away_ = false;  // stopped or crashed
   double startedAt_ = 0;
   std::vector<Request> requests_;                 // not answered yet
   boost::json::object const * answer_ = nullptr;  // that is judged now
   std::optional<Fault> fault_;
   Tally tally_;
   // Last: they hear of changes until they go.
   std::vector<std::unique_ptr<Follow>> follows_;
   Kel::Ptr<Kel::Entity const> accounts_;
   std::unique_ptr<Follow> accountsFollow_;
};

}  // namespace Lives
