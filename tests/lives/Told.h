// What the lines of a scenario have said so far: links, what they are made of, their traffic, and the configuration.
//
// The truth by which lives are judged. Fed by the lines themselves, in the order in which they are carried out; nothing
// here comes from the product. What flows on a link is counted by the same formula as the invented counters count it,
// octet for octet, so that averages can be compared exactly. A link that is gone carries nothing.
#pragma once

#include <boost/json.hpp>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Lives {

enum class Kind { ethernet, portChannel, vlan, other };
enum class Said { gone, down, up };
enum Way : size_t { in = 0, out = 1, ways = 2 };

// Why what was known of an interface is not known any more.
enum class Cause { link, memberLink, unread, restart, members, row, valueless, profile, monitor, start, loud };
char const * text( Cause cause );

struct Rates {
   double way[ways] = { 0, 0 };  // bit/s
   [[nodiscard]] double most() const { return way[in] > way[out] ? way[in] : way[out]; }
};

struct Octets {
   uint64_t way[ways] = { 0, 0 };
};

struct Port {
   std::string name;
   Kind kind = Kind::ethernet;
   Said said = Said::gone;
   bool left = false;      // a line said that it is gone
   double presentAt = -1;  // s, the last time at which it was there and then left; -1: never
   std::vector<size_t> members;
   // Of Ethernet links only.
   bool row = false;     // it has counters
   bool unread = false;  // which cannot be read
   bool valueless[ways] = { false, false };
   double bitsPerSecond[ways] = { 0, 0 };
   Octets counted;                 // at `since`
   double since[ways] = { 0, 0 };  // s
   unsigned restarts = 0;
   // As the table of counters has it: the turn of the latest read, the one before, and the restarts that it has told
   // of.
   double readAt = -1, readBefore = -1;
   unsigned restartsRead = 0;

   struct Stretch {
      double from;  // s
      Octets counted;
      double bitsPerSecond[ways];
   };
   std::vector<Stretch> past;  // how it has flowed up to now, in the order of time

   // Nothing flows on a link that has gone. Counters of which no line said whose link they are count all the same.
   [[nodiscard]] bool nowhere() const { return left; }
   [[nodiscard]] bool nothing() const { return said == Said::gone && ( left || !row ); }
};

struct Profile {
   std::string name;
   double thresholdBitsRate = 0;
   double sampleInterval = 10;  // s
   double loadInterval = 60;    // s
   bool shutdown = false;
   bool operator==( Profile const & ) const = default;
};

enum class OnTimeout { rollback, proceed, hold };

struct Stage {
   std::optional<double> timeout;  // s
   OnTimeout onTimeout = OnTimeout::rollback;
};

struct Group {
   std::string name;
   std::vector<size_t> ports;
   std::string profile;  // empty: the default
};

struct Unit {
   std::string name;
   std::vector<size_t> groups;
   std::vector<size_t> ports;  // each once, in the order of the groups
};

class Told {
 public:
   // Called as a line says so, before it is carried out.
   using Heard = std::function<void( size_t port, Cause cause )>;

   explicit Told( Heard heard ) : heard_( std::move( heard ) ) {}

   // Of anything but the configuration, which is the caller's to take apart.
   void line( boost::json::object const & line, double now );

   [[nodiscard]] size_t port( std::string_view name );  // makes it, gone, when nobody has named it yet
   [[nodiscard]] std::vector<Port> const & ports() const { return ports_; }

   // The Ethernet links that an interface is made of, sorted; itself for one. A member that is neither a link nor a
   // counter is nothing.
   [[nodiscard]] std::vector<size_t> rows( size_t port ) const;
   // Whether there is something among its members that nobody can sample.
   [[nodiscard]] bool odd( size_t port ) const;
   // Whether it is there, and all that it is made of.
   [[nodiscard]] bool complete( size_t port ) const;
   [[nodiscard]] Octets octets( size_t ethernet, double now ) const;
   // The same at an earlier time, in octets that need not be whole.
   [[nodiscard]] Rates octetsAt( size_t ethernet, double time ) const;
   // All counters that can be read are read in this turn.
   void readAll( double now );
   // What flows at this moment.
   [[nodiscard]] Rates flow( size_t port ) const;
   // The same for any other quantity: `of` gives it for each Ethernet link. A port-channel is the sum of its members, a
   // VLAN the busiest of them in each direction.
   [[nodiscard]] Rates combined( size_t port, std::function<Rates( size_t )> const & of ) const;

   // The configuration of the last line that had one.
   [[nodiscard]] std::vector<Unit> const & units() const { return units_; }
   [[nodiscard]] std::vector<Group> const & groups() const { return groups_; }
   [[nodiscard]] Profile const & profile( std::string const & name ) const { return profiles_.at( name ); }
   [[nodiscard]] std::string const & defaultProfile() const { return defaultProfile_; }
   [[nodiscard]] std::map<std::string, Stage> const & enterStages() const { return enterStages_; }

 private:
   void carryOut( boost::json::object const & line, double now );
   void link( boost::json::object const & byName, double now );
   void linkIs( size_t port, boost::json::value const & said, double now );
   void traffic( boost::json::object const & byName, double now );
   void counters( boost::json::object const & byName, double now );
   void unread( boost::json::array const & names );
   void restart( boost::json::array const & names, double now );
   void config( boost::json::object const & config );
   void rowIs( size_t port, double now );
   void keepPast( size_t port, double now );
   void read( Port & port, double now );
   void flowIs( size_t port, Way way, double now );
   void flowsAre( size_t port, double now );
   void tellMembers( std::vector<std::vector<size_t>> const & before );
   [[nodiscard]] std::vector<std::vector<size_t>> allRows() const;
   [[nodiscard]] bool isMadeOf( size_t port, size_t ethernet ) const;
   void tellAllMadeOf( size_t ethernet, Cause cause );

   Heard const heard_;
   std::vector<Port> ports_;
   std::map<std::string, size_t, std::less<>> byName_;
   std::map<std::string, Profile> profiles_;
   std::string defaultProfile_;
   std::vector<Group> groups_;
   std::vector<Unit> units_;
   std::map<std::string, Stage> enterStages_;
};

}  // namespace Lives
