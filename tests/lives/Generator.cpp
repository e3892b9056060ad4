#include "Generator.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace Lives {

namespace {

// Its own, because what the standard library's distributions make of the same bits differs from one to the next.
class Random {
 public:
   // By a constant of its own, or the lives of two seeds in a row would be the same but for one step.
   explicit Random( uint64_t seed ) : state_( seed * 0xd1342543de82ef95u ) {}
   unsigned below( size_t n ) { return static_cast<unsigned>( next() % n ); }
   unsigned between( unsigned low, unsigned high ) { return low + below( high - low + 1 ); }
   bool percent( unsigned chance ) { return below( 100 ) < chance; }
   template<class T>
   T const & of( std::vector<T> const & all ) {
      return all[below( all.size() )];
   }

 private:
   uint64_t next() {
      uint64_t z = ( state_ += 0x9e3779b97f4a7c15u );
      z = ( z ^ ( z >> 30 ) ) * 0xbf58476d1ce4e5b9u;
      z = ( z ^ ( z >> 27 ) ) * 0x94d049bb133111ebu;
      return z ^ ( z >> 31 );
   }
   uint64_t state_;
};

std::string inQuotes( std::string const & text ) { return "\"" + text + "\""; }

std::string number( double value ) {
   char text[32];
   std::snprintf( text, sizeof text, "%.10g", value );
   return text;
}

template<class T>
std::string joined( std::vector<T> const & parts ) {
   std::string text;
   for( auto const & part : parts ) text += ( text.empty() ? "" : ", " ) + part;
   return text;
}

std::string list( std::vector<std::string> const & names ) {
   std::vector<std::string> texts;
   for( auto const & name : names ) texts.push_back( inQuotes( name ) );
   return "[" + joined( texts ) + "]";
}

std::string line( char const * verb, std::string const & argument ) {
   return "{" + inQuotes( verb ) + ": " + argument + "}";
}

struct Link {
   std::string name;
   std::string kind;  // "ethernet", "port-channel", "vlan"
   std::vector<std::string> members;
   bool there = true;
   bool up = true;
   unsigned long inRate = 0, outRate = 0;  // bit/s
};

struct ProfileText {
   std::string name;
   unsigned kbps;
   double sample;  // s
   unsigned load;  // s
   bool shutdown;
   std::string maxDelay;  // empty: none
};

struct GroupText {
   std::string name;
   std::vector<std::string> intfs;
   std::string profile;
};

class Maker {
 public:
   explicit Maker( uint64_t seed ) : random_( seed ) {}

   Lines life() {
      makeLinks();
      makeConfig();
      say( configLine() );
      for( Link & link : links_ ) {
         if( random_.percent( 60 ) ) link.inRate = level();
         say( appearing( link ) );
      }
      if( random_.percent( 30 ) ) shortWhile();
      say( line( "start", "{}" ) );
      if( random_.percent( 30 ) ) say( line( "advance", random_.percent( 50 ) ? "0.000001" : "0.7" ) );
      enter();
      for( unsigned steps = random_.between( 10, 30 ); steps > 0; --steps ) {
         happen();
         pass();
         ask();
      }
      if( random_.percent( 60 ) ) lastLook();
      return std::move( lines_ );
   }

 private:
   // The box

   void makeLinks() {
      unsigned const count = random_.between( 2, 6 );
      for( unsigned i = 0; i < count; ++i ) links_.push_back( Link{ "eth" + std::to_string( i ), "ethernet", {} } );
      ethernets_ = links_.size();
      if( random_.percent( 50 ) ) {
         links_.push_back( Link{ "bond0", "port-channel", someEthernets( 3 ) } );
      }
      if( random_.percent( 40 ) ) {
         auto members = someEthernets( 3 );
         if( links_.back().name == "bond0" && random_.percent( 50 ) ) members.push_back( "bond0" );
         if( random_.percent( 4 ) ) members.push_back( "Ethernet1.5" );
         links_.push_back( Link{ "v20", "vlan", members } );
      }
      for( Link & link : links_ ) {
         link.up = random_.percent( 93 );
         link.there = random_.percent( 98 );
      }
   }

   std::vector<std::string> someEthernets( unsigned most ) {
      std::vector<std::string> names;
      for( unsigned n = random_.between( random_.percent( 5 ) ? 0 : 1, most ); n > 0; --n ) {
         auto const & name = anyEthernet().name;
         if( std::find( names.begin(), names.end(), name ) == names.end() ) names.push_back( name );
      }
      return names;
   }

   ProfileText makeProfile( std::string const & name ) {
      static std::vector<unsigned> const thresholds{ 1, 64, 100, 1000, 2500 };
      static std::vector<unsigned> const loads{ 0, 1, 2, 5, 7, 11, 13, 20, 30, 45, 60 };
      double const sample = random_.percent( 85 ) ? random_.between( 1, 10 ) : random_.between( 2, 12 ) / 2.0 + 0.5;
      ProfileText profile{ name, random_.of( thresholds ), sample, random_.of( loads ), random_.percent( 25 ), "" };
      if( profile.shutdown && random_.percent( 60 ) ) {
         profile.maxDelay = random_.percent( 20 ) ? "0s" : number( random_.between( 3, 40 ) ) + "s";
      }
      return profile;
   }

   void makeConfig() {
      unsigned const profiles = random_.between( 1, 3 );
      for( unsigned i = 0; i < profiles; ++i ) profiles_.push_back( makeProfile( "p" + std::to_string( i ) ) );
      defaultProfile_ = random_.of( profiles_ ).name;
      unsigned const groups = random_.between( 1, 4 );
      for( unsigned i = 0; i < groups; ++i ) {
         GroupText group{ "g" + std::to_string( i ), {}, random_.percent( 50 ) ? random_.of( profiles_ ).name : "" };
         for( unsigned n = random_.between( 1, 3 ); n > 0; --n ) {
            std::string name = anyLink().name;
            if( random_.percent( 2 ) ) name = random_.percent( 70 ) ? "eth7" : "Ethernet1.5";
            if( std::find( group.intfs.begin(), group.intfs.end(), name ) == group.intfs.end() )
               group.intfs.push_back( name );
         }
         groups_.push_back( group );
      }
      unsigned const units = random_.between( 1, 3 );
      for( unsigned i = 0; i < units; ++i ) {
         units_.push_back( "u" + std::to_string( i ) );
         unitGroups_.push_back( { random_.below( groups_.size() ) } );
         size_t const second = random_.below( groups_.size() );
         if( random_.percent( 40 ) && second != unitGroups_[i][0] ) unitGroups_[i].push_back( second );
      }
      stages_ = makeStages();
   }

   std::string makeStages() {
      auto const stage = [this]( char const * name, unsigned timed ) {
         std::string text = "{\"name\": " + inQuotes( name );
         if( random_.percent( timed ) ) {
            unsigned const act = random_.below( 10 );
            text += ", \"timeout\": \"" + number( random_.between( 3, 90 ) ) + "s\", \"on-timeout\": ";
            text += act < 5 ? "\"hold\"" : act < 8 ? "\"rollback\"" : "\"continue\"";
         }
         return text + "}";
      };
      std::string const hook = random_.percent( 20 ) ? "{\"name\": \"bgp\", \"run\": [\"/bin/hook\"]}, " : "";
      return "{\"maintEnter\": [" + hook + stage( "ratemon", 40 ) + ", " + stage( "verify", 60 ) +
             "], \"maintExit\": [{\"name\": \"ratemon\"}]}";
   }

   std::string configLine() const {
      std::vector<std::string> profiles, groups, units;
      for( auto const & p : profiles_ ) {
         std::string text = inQuotes( p.name ) + ": {\"threshold\": \"" + std::to_string( p.kbps ) + "kbps\"" +
                            ", \"sample-interval\": \"" + number( p.sample ) + "s\", \"load-interval\": \"" +
                            std::to_string( p.load ) + "s\"";
         if( p.shutdown ) text += ", \"shutdown\": true";
         if( !p.maxDelay.empty() ) text += ", \"max-delay\": " + inQuotes( p.maxDelay );
         profiles.push_back( text + "}" );
      }
      for( auto const & g : groups_ ) {
         std::string const profile = g.profile.empty() ? "" : ", \"profile\": " + inQuotes( g.profile );
         groups.push_back( inQuotes( g.name ) + ": {\"interfaces\": " + list( g.intfs ) + profile + "}" );
      }
      for( size_t u = 0; u < units_.size(); ++u ) {
         std::vector<std::string> names;
         for( size_t const g : unitGroups_[u] ) names.push_back( groups_[g].name );
         units.push_back( inQuotes( units_[u] ) + ": {\"groups\": " + list( names ) + "}" );
      }
      return line( "config", "{\"profiles\": {" + joined( profiles ) + "}, \"default-profile\": " +
                                inQuotes( defaultProfile_ ) + ", \"groups\": {" + joined( groups ) + "}, \"units\": {" +
                                joined( units ) + "}, \"stages\": " + stages_ + "}" );
   }

   std::string linkText( Link const & link ) const {
      if( !link.there ) return "{" + inQuotes( link.name ) + ": null}";
      std::string const state = link.up ? "\"up\"" : "\"down\"";
      if( link.kind == "ethernet" ) return "{" + inQuotes( link.name ) + ": " + state + "}";
      return "{" + inQuotes( link.name ) + ": {\"state\": " + state + ", \"kind\": " + inQuotes( link.kind ) +
             ( link.kind == "vlan" ? ", \"vlan\": 20" : "" ) + ", \"members\": " + list( link.members ) + "}}";
   }

   std::string trafficText( Link const & link ) const {
      return "{" + inQuotes( link.name ) + ": {\"in\": " + std::to_string( link.inRate ) +
             ", \"out\": " + std::to_string( link.outRate ) + "}}";
   }

   // A link that comes, and what flows on it from then on.
   std::string appearing( Link const & link ) const {
      if( link.kind != "ethernet" || !link.there ) return line( "link", linkText( link ) );
      return line( "batch",
                   "[" + line( "link", linkText( link ) ) + ", " + line( "traffic", trafficText( link ) ) + "]" );
   }

   // What happens

   // Around the thresholds that there are.
   unsigned long level() {
      unsigned long const t = 1000ul * random_.of( profiles_ ).kbps;
      unsigned long const levels[] = { 0, 0, 0, t / 10, t / 10, t - 8, t, t + 8, 3 * t / 2, 10 * t };
      return levels[random_.below( 10 )];
   }

   void setTraffic() {
      Link & link = anyEthernet();
      link.inRate = level();
      link.outRate = random_.percent( 50 ) ? link.inRate : level();
      sayTraffic( link );
   }

   void moveTraffic() {
      Link & from = anyEthernet();
      Link & to = anyEthernet();
      if( &from == &to || !from.there || !to.there ) return setTraffic();
      to.inRate += std::exchange( from.inRate, 0 );
      to.outRate += std::exchange( from.outRate, 0 );
      say( line( "batch",
                 "[" + line( "traffic", trafficText( from ) ) + ", " + line( "traffic", trafficText( to ) ) + "]" ) );
   }

   void calmAll() {
      for( size_t i = 0; i < ethernets_; ++i ) {
         links_[i].inRate = links_[i].outRate = random_.percent( 70 ) ? 0 : 100;
         sayTraffic( links_[i] );
      }
   }

   // Shorter than a sample, mostly.
   void burst() {
      Link & link = anyEthernet();
      unsigned long const before = link.inRate;
      link.inRate = 1000ul * random_.of( profiles_ ).kbps * random_.between( 1, 12 );
      sayTraffic( link );
      shortWhile();
      link.inRate = before;
      sayTraffic( link );
   }

   void flap() {
      Link & link = anyLink();
      if( !link.there || !link.up ) return toggle();
      Link down = link;
      down.up = false;
      if( random_.percent( 25 ) ) down.there = false;
      if( random_.percent( 40 ) ) {
         return say( line(
            "batch", "[" + line( "link", linkText( down ) ) + ", " + line( "link", linkText( link ) ) +
                        ( link.kind == "ethernet" ? ", " + line( "traffic", trafficText( link ) ) : "" ) + "]" ) );
      }
      say( line( "link", linkText( down ) ) );
      if( random_.percent( 70 ) ) shortWhile();
      if( random_.percent( 20 ) ) ask();
      say( appearing( link ) );
   }

   void toggle() {
      Link & link = anyLink();
      link.up = !link.up || random_.percent( 30 );
      link.there = true;
      say( appearing( link ) );
   }

   void comeAndGo() {
      Link & link = anyLink();
      link.there = !link.there;
      link.up = link.there;
      say( appearing( link ) );
   }

   void rename() {
      Link & link = anyEthernet();
      if( !link.there ) return comeAndGo();
      std::string const before = line( "link", "{" + inQuotes( link.name ) + ": null}" );
      link.name = link.name == "eth7" ? "eth8" : "eth7";
      // Two links never bear one name.
      if( std::count_if( links_.begin(), links_.end(), [&]( Link const & l ) { return l.name == link.name; } ) > 1 ) {
         link.name = before.substr( 11, 4 );
         return;
      }
      std::string const after = line( "link", linkText( link ) ) + ", " + line( "traffic", trafficText( link ) );
      if( random_.percent( 50 ) ) return say( line( "batch", "[" + before + ", " + after + "]" ) );
      say( before );
      shortWhile();
      say( line( "batch", "[" + after + "]" ) );
   }

   void unread() {
      if( std::exchange( unread_, !unread_ ) ) return say( line( "unread", "[]" ) );
      say( line( "unread", list( someEthernets( 2 ) ) ) );
   }

   void restart() {
      Link const & link = anyEthernet();
      if( link.there && link.up ) say( line( "restartCounters", list( { link.name } ) ) );
   }

   void loseCounters() {
      Link const & link = anyEthernet();
      if( !link.there ) return;
      bool const all = random_.percent( 40 );
      std::string const way = random_.percent( 50 ) ? "in" : "out";
      say( line( "counters",
                 "{" + inQuotes( link.name ) + ": " + ( all ? "null" : "{" + inQuotes( way ) + ": null}" ) + "}" ) );
      longWhile();
      ask();
      if( all ) return say( line( "traffic", trafficText( link ) ) );
      say( line( "counters", "{" + inQuotes( link.name ) + ": {" + inQuotes( way ) + ": 0}}" ) );
   }

   void membership() {
      for( size_t i = ethernets_; i < links_.size(); ++i ) {
         if( !links_[i].there || random_.percent( 50 ) ) continue;
         links_[i].members = someEthernets( 3 );
         if( links_[i].kind == "vlan" && links_[ethernets_].name == "bond0" && random_.percent( 40 ) ) {
            links_[i].members.push_back( "bond0" );
         }
         say( line( "link", linkText( links_[i] ) ) );
      }
   }

   void reload() {
      for( unsigned n = random_.between( 1, 2 ); n > 0; --n ) {
         if( random_.percent( 60 ) ) {
            changeProfile();
         } else {
            changeGroup();
         }
      }
      say( configLine() );
   }

   void changeProfile() {
      ProfileText & profile = profiles_[random_.below( profiles_.size() )];
      switch( random_.below( 7 ) ) {
         case 0: profile.kbps *= 2; return;
         case 1: profile.kbps = std::max( 1u, profile.kbps / 2 ); return;
         case 2: profile.sample = random_.between( 1, 10 ); return;
         case 3: profile.load = random_.between( 0, 30 ); return;
         case 4:
            profile.shutdown = !profile.shutdown;
            profile.maxDelay = "";
            return;
         default: profile = makeProfile( profile.name );
      }
   }

   void changeGroup() {
      GroupText & group = groups_[random_.below( groups_.size() )];
      auto const & name = anyLink().name;
      auto const found = std::find( group.intfs.begin(), group.intfs.end(), name );
      switch( random_.below( 4 ) ) {
         case 0: group.profile = random_.of( profiles_ ).name; return;
         case 1: group.profile = ""; return;
         case 2: defaultProfile_ = random_.of( profiles_ ).name; return;
         default:
            if( found != group.intfs.end() ) {
               group.intfs.erase( found );
            } else {
               group.intfs.push_back( name );
            }
      }
   }

   void enter() {
      std::string const & unit = anyUnit();
      std::string text = "{\"enter\": " + inQuotes( unit );
      if( random_.percent( 15 ) ) {
         auto const & group = groups_[random_.of( unitGroups_[size_t( unit[1] - '0' )] )];
         std::vector<std::string> without;
         if( !group.intfs.empty() ) without.push_back( random_.of( group.intfs ) );
         if( random_.percent( 8 ) ) without = { "nobody" };
         text += ", \"without\": " + list( without );
      }
      say( text + "}" );
      if( random_.percent( 50 ) ) calmAll();
      if( random_.percent( 50 ) ) longWhile();
   }

   void leave() { say( line( "exit", inQuotes( anyUnit() ) ) ); }

   void away() {
      away_ = true;
      say( line( random_.percent( 50 ) ? "stop" : "crash", "{}" ) );
      for( unsigned n = random_.below( 4 ); n > 0; --n ) {
         switch( random_.below( 6 ) ) {
            case 0: setTraffic(); break;
            case 1: flap(); break;
            case 2: toggle(); break;
            case 3: comeAndGo(); break;
            case 4: burst(); break;
            default: say( line( "advance", number( random_.between( 0, 20 ) ) ) );
         }
      }
      say( line( "start", "{}" ) );
      away_ = false;
   }

   // Time and questions

   void pass() {
      ProfileText const & profile = random_.of( profiles_ );
      switch( random_.below( 10 ) ) {
         case 0: return shortWhile();
         case 1:
         case 2:
         case 3: return say( line( "advance", number( random_.between( 1, 10 ) ) ) );
         case 4: return say( line( "advance", number( random_.between( 1, 50 ) / 10.0 ) ) );
         case 5: return say( line( "advance", number( profile.load ) ) );
         case 6: return say( line( "advance", number( profile.sample ) ) );
         case 7: return longWhile();
         default: return;
      }
   }

   // After which a unit that was left alone is ready.
   void longWhile() {
      double longest = 0;
      for( auto const & p : profiles_ ) longest = std::max( longest, p.load + 4 * p.sample + 3 );
      say( line( "advance", number( longest ) ) );
   }

   void ask() {
      if( away_ ) return;  // nobody answers
      say( line( random_.percent( 50 ) ? "status" : "ready", inQuotes( anyUnit() ) ) );
   }

   void happen() {
      struct Act {
         unsigned weight;
         void ( Maker::*act )();
      };
      static Act const acts[] = {
         { 16, &Maker::setTraffic }, { 12, &Maker::moveTraffic }, { 8, &Maker::calmAll },
         { 7, &Maker::burst },       { 8, &Maker::flap },         { 6, &Maker::toggle },
         { 5, &Maker::comeAndGo },   { 2, &Maker::rename },       { 5, &Maker::unread },
         { 3, &Maker::restart },     { 1, &Maker::loseCounters }, { 4, &Maker::membership },
         { 5, &Maker::reload },      { 10, &Maker::enter },       { 4, &Maker::leave },
         { 4, &Maker::away },
      };
      unsigned all = 0;
      for( Act const & act : acts ) all += act.weight;
      unsigned at = random_.below( all );
      for( Act const & act : acts ) {
         if( at < act.weight ) return ( this->*act.act )();
         at -= act.weight;
      }
   }

   // Everything is put right, and left alone.
   void lastLook() {
      say( line( "unread", "[]" ) );
      calmAll();
      longWhile();
      for( auto const & unit : units_ ) say( line( "status", inQuotes( unit ) ) );
   }

   void shortWhile() { say( line( "advance", number( random_.between( 1, 9 ) / 10.0 ) ) ); }
   void say( std::string const & text ) { lines_.push_back( text ); }
   // Traffic is said of links that are there; of the others it is said when they come.
   void sayTraffic( Link const & link ) {
      if( link.there ) say( line( "traffic", trafficText( link ) ) );
   }
   Link & anyLink() { return links_[random_.below( links_.size() )]; }
   Link & anyEthernet() { return links_[random_.below( ethernets_ )]; }
   std::string const & anyUnit() { return random_.of( units_ ); }

   Random random_;
   Lines lines_;
   std::vector<Link> links_;  // Ethernet links first
   size_t ethernets_ = 0;
   std::vector<ProfileText> profiles_;
   std::string defaultProfile_;
   std::vector<GroupText> groups_;
   std::vector<std::string> units_;
   std::vector<std::vector<size_t>> unitGroups_;
   std::string stages_;
   bool unread_ = false;
   bool away_ = false;
};

}  // namespace

Lines randomLife( uint64_t seed ) { return Maker( seed ).life(); }

}  // namespace Lives
