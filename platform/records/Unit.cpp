#include "records/Unit.h"

#include <locale>
#include <sstream>

#include "kel/Exception.h"

KEL_TYPE( Maintenance::Unit::Status )
KEL_TYPE( Maintenance::Unit::StatusDir )

namespace Maintenance::Unit {

namespace {

[[noreturn]] void malformed( std::string const & why ) {
   throw Kel::InternalException( "Unexpected instanceName format" + why );
}

}  // namespace

Kel::Name StageMgrInstKey::instanceName() const { return unitName_.str() + "#" + std::to_string( genId_ ); }

void StageMgrInstKey::instanceNameIs( Kel::Name const & name ) {
   // Its own name is no change, not even where it could not be parsed: a key made from its parts may have any unit
   // name.
   if( !( name == instanceName() ) ) parse( name );
}

void StageMgrInstKey::parse( Kel::Name const & name ) {
   std::string_view const text = name.view();
   std::size_t const hash = text.find( '#' );
   if( hash == std::string_view::npos ) malformed( "" );
   if( hash == 0 ) malformed( ", couldn't extract unitName" );
   if( hash + 1 == text.size() ) malformed( ", couldn't extract genId" );
   // A stream, because leading blanks are skipped, the first character that is no
   // digit ends it. std::from_chars would refuse the blanks.
   std::istringstream rest{ std::string( text.substr( hash + 1 ) ) };
   // Whatever the host's locale is: one that groups digits would read on past a comma.
   rest.imbue( std::locale::classic() );
   uint32_t genId = 0;
   if( !( rest >> genId ) ) malformed( ", genId is invalid" );
   // All checks stand before this line: a name that is refused leaves the key as it was.
   unitName_ = text.substr( 0, hash );
   genId_ = genId;
}

}  // namespace Maintenance::Unit
