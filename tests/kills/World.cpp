#include "World.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>

namespace Kills {

namespace {

template<std::size_t size>
void copy( std::string_view text, std::array<char, size> & to ) {
   to.fill( '\0' );
   text.copy( to.data(), size - 1 );
}

}  // namespace

World & World::make() {
   void * const memory = ::mmap( nullptr, sizeof( World ), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0 );
   return *new( memory ) World{};
}

void World::begin( bool preserve ) {
   *this = World{};
   now = 1'700'000'000;
   bootedAt = now - 1000;
   boots = 1;
   preserveIpv6 = preserve;
   dieAt = dieAgainAt = noMoment;
   constexpr std::array<char const *, linkCount> names{ "lo", "up1", "up2", "up3", "up4", "other" };
   for( unsigned i = 0; i < linkCount; ++i ) {
      copy( names[i], links[i].name );
      links[i].wanted = true;
      remade( links[i] );
   }
}

void World::pass( PointSet at ) {
   unsigned const present = moment++;
   if( present < momentsMax ) passed[present] = at;
   if( present == dieAt || present == dieAgainAt ) {
      ::kill( ::getpid(), SIGKILL );
      for( ;; ) ::pause();
   }
}

void World::faultIs( std::string_view text ) {
   if( fault[0] == '\0' ) copy( text, fault );
}

Link * World::link( std::string_view name ) {
   auto const found =
      std::ranges::find( links, name, []( Link const & l ) { return std::string_view( l.name.data() ); } );
   return found == links.end() ? nullptr : &*found;
}

void World::setByOthers( Link & link, bool up ) {
   link.wanted = up;
   link.raised = link.raised || ( up && link.takenDown );
   link.takenDown = false;
   link.adminUp = up;
}

void World::remade( Link & link ) {
   link.index = ++lastIndex;
   link.adminUp = link.wanted;
   link.carrier = true;
   link.takenDown = false;
   link.keepAddr = 0;
}

void World::machineStarts() {
   ++boots;
   now += 4;
   bootedAt = now - 2;
   lastIndex = 0;
   for( Link & link : links ) {
      bool const carrier = link.carrier;
      remade( link );
      link.carrier = carrier;
   }
}

}  // namespace Kills
