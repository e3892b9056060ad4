// What is known of the units that are watched: the last answer, and the rates of the last minutes.
//
// Made of maintd's answers one after the other, and of nothing else: no clock, no terminal. Texts in it can be shown as
// they are.
#pragma once

#include <map>
#include <utility>

#include "tables/Members.h"
#include "watch/Series.h"

namespace Cli::Watch {

// What an interface means for its unit, the worst first.
enum class Standing : uint8_t {
   loud,     // traffic
   unknown,  // waiting, unwatched or missing: nobody can tell
   proving,  // quiet, down or gone, but not yet for long enough
   settled,  // proven, held, or left out
   none,     // nothing is to be proven
};

struct Intf {
   std::string key;   // as maintd knows it
   std::string name;  // as it is shown
   std::string verdict;
   Standing standing = Standing::none;
   std::optional<double> since;  // s
   std::optional<double> neededSeconds;
   std::optional<double> in;            // bit/s
   std::optional<double> out;           //
   std::optional<double> threshold;     //
   std::optional<double> loadInterval;  // s
   std::string pace;                    // of a loud one: "slow", "stuck", or nothing
   std::optional<double> quietIn;       // s, estimated
   double breaks = 0;
   double spikes = 0;
   std::string why;
   Series const * series = nullptr;  // of the scene; never null in one

   // The higher rate by the threshold: 3.2 is 3.2 times as much, 0.4 is 40 % of it.
   [[nodiscard]] std::optional<double> distance() const;
};

struct Unit {
   std::string key;
   std::string name;
   std::string state;  // as maintd says it
   std::string stage;
   std::string requestedBy;
   std::string generation;
   std::string without;
   std::string note;
   bool ready = false;
   bool disturbed = false;
   std::optional<double> since;
   std::optional<double> provenUntil;
   double now = 0;
   std::vector<Intf> intfs;

   // On its way through maintenance, so that its interfaces have verdicts.
   [[nodiscard]] bool judged() const;
   [[nodiscard]] std::size_t count( Standing standing ) const;
};

class Scene {
 public:
   explicit Scene( Look look ) : look_( look ) {}

   [[nodiscard]] std::vector<Unit> const & units() const { return units_; }
   [[nodiscard]] Intf const * intf( std::string const & unit, std::string const & intf ) const;

   // An answer about a unit, or about all of them; they are asked for about each `interval` seconds.
   void answerIs( Object const & answer, double interval );
   // A window of a unit: the rates from before the first answer.
   void windowIs( std::string const & unit, Object const & window );

 private:
   [[nodiscard]] Unit unitOf( Object const & answer, double interval );
   [[nodiscard]] Intf intfOf( Object const & answer ) const;
   void sampleIs( Series & series, Intf const & intf, double before, double now ) const;

   Look const look_;
   std::vector<Unit> units_;
   // By the keys of unit and interface. What has gone stays until the view ends: it may come back.
   std::map<std::pair<std::string, std::string>, Series> series_;
   std::map<std::string, double> answered_;  // s, on the service's clock, when a unit was last heard of
};

// The cells of an interface of a window.
[[nodiscard]] std::vector<Cell> cellsOf( Object const & windowIntf, char const * in, char const * out );

}  // namespace Cli::Watch
