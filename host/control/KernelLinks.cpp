#include "control/KernelLinks.h"

#include <system_error>

namespace Host {

namespace {

// A kernel short of memory can fail once and answer the next moment.
template<typename Question>
auto askedAgain( Question const & question ) -> decltype( question() ) {
   try {
      return question();
   } catch( std::system_error const & ) {
      return question();
   }
}

template<typename Order>
std::string trouble( Order const & order ) {
   try {
      order();
   } catch( std::system_error const & error ) {
      return error.what();
   }
   return {};
}

std::optional<Service::LinkSwitch::Link> switchable( std::optional<Linux::Link> const & link ) {
   if( !link ) return std::nullopt;
   return Service::LinkSwitch::Link{ .index = link->index, .adminUp = link->adminUp };
}

}  // namespace

std::optional<KernelLinks::Link> KernelLinks::link( Lumo::IntfId intf ) const {
   std::string const name( intf.name() );
   return askedAgain( [&] { return switchable( kernel_.link( name ) ); } );
}

std::optional<KernelLinks::Link> KernelLinks::link( int index ) const {
   return askedAgain( [&] { return switchable( kernel_.link( index ) ); } );
}

std::string KernelLinks::adminUpIs( int index, bool up ) {
   std::string refusal;
   std::string const failure = trouble( [&] {
      if( !up ) {
         auto const link = kernel_.link( index );
         if( link && link->loopback ) refusal = link->name + " is the loopback, which is never taken down";
      }
      if( refusal.empty() ) kernel_.adminUpIs( index, up );
   } );
   return failure.empty() ? refusal : failure;
}

std::optional<int> KernelLinks::keepAddrOnDown( int index ) const {
   return askedAgain( [&] { return kernel_.keepAddrOnDown( index ); } );
}

std::string KernelLinks::keepAddrOnDownIs( int index, int value ) {
   return trouble( [&] { kernel_.keepAddrOnDownIs( index, value ); } );
}

}  // namespace Host
