// The configuration of the service: what the operator's file says, checked as a whole and handed over in plain structs.
//
// Whoever runs the service hands over the file's text. A Config that exists holds: every name that is referred to is
// there, every quantity is in range, each stage list has its "ratemon" and the one of the way in its "verify". A file
// that does not hold gives no Config at all but a ConfigError with every problem in it, so that the operator mends the
// file in one go. JSON is YAML, so the text may as well be a JSON object.
//
// Everything is in file order, because order is precedence: where two units or groups claim an interface, the one
// written first wins. Two configurations that say the same are equal, however their files are laid out.
//
// This never looks at the network: whether an interface exists is the service's business.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Service::Config {

// The built-in stages, which alone have nothing to run. The plug-in serves the first; every stage list names it exactly
// once. The second ends when every interface of the unit is proven quiet at the same moment; it stands after the first
// on the way in, and nowhere on the way out.
inline constexpr std::string_view rateMonStage = "ratemon";
inline constexpr std::string_view verifyStage = "verify";

// How an interface is watched. The values below are what a field left out of the file means.
struct Profile {
   std::string name;
   double thresholdKbps = 0;                // kbps, always given, > 0; quiet is strictly below
   double sampleIntervalSeconds = 10;       // 1 or more
   std::uint32_t loadIntervalSeconds = 60;  // how long traffic must stay quiet; 0: the first quiet sample is enough
   bool shutdown = false;                   // take the link down once it has drained
   // With shutdown: take the link down after this long at the latest, 0 at once. Absent: only when it has drained.
   std::optional<double> maxDelaySeconds;

   bool operator==( Profile const & ) const = default;
};

// Interfaces that share a role. One interface may be in several groups.
struct Group {
   std::string name;
   std::vector<std::string> interfaces;
   std::optional<std::string> profile;  // absent: the default profile

   bool operator==( Group const & ) const = default;
};

// What an operator puts into maintenance. One group may be in several units.
struct Unit {
   std::string name;
   std::vector<std::string> groups;  // never empty

   bool operator==( Unit const & ) const = default;
};

// What happens to the unit when a stage takes longer than its timeout, or its program fails.
enum class OnTimeout {
   rollback,  // what was done so far is undone; only on the way in
   proceed,   // to the next stage, with this one unproven; "continue" in the file
   hold,      // it is told of, and the stage goes on: a program is run again, on the way out the unit fails
};

struct Stage {
   std::string name;
   std::vector<std::string> run;          // program and arguments; empty for the built-in stages and for no other
   std::optional<double> timeoutSeconds;  // > 0; absent: the stage may take as long as it needs
   // Where the file does not say: rollback on the way in, hold on the way out.
   OnTimeout onTimeout = OnTimeout::rollback;

   bool operator==( Stage const & ) const = default;
};

// The stages of both directions, in the order in which they run. Where the file leaves a list out: in by "ratemon", for
// 30 minutes and then rolled back, and "verify", held after 10 minutes; out by "ratemon" alone.
struct Stages {
   std::vector<Stage> maintEnter;
   std::vector<Stage> maintExit;

   bool operator==( Stages const & ) const = default;
};

struct Config {
   std::vector<Profile> profiles;
   std::string defaultProfile;
   std::vector<Group> groups;
   std::vector<Unit> units;
   Stages stages;
   bool preserveIpv6 = false;  // links that are taken down keep their IPv6 addresses

   bool operator==( Config const & ) const = default;
};

// One thing that is wrong with the file. Line and column count from 1, the column in bytes.
struct Problem {
   int line = 1;
   int column = 1;
   std::string text;
};

// A file that does not hold. what() has one line per problem, "file:line:column: reason", in the order of the file.
class ConfigError : public std::runtime_error {
 public:
   ConfigError( std::string const & fileName, std::vector<Problem> problems );

   [[nodiscard]] std::vector<Problem> const & problems() const { return problems_; }

 private:
   std::vector<Problem> problems_;
};

// Reads and checks the text of a file; fileName is only named in the reasons. Throws ConfigError.
[[nodiscard]] Config parse( std::string_view text, std::string const & fileName );

}  // namespace Service::Config
