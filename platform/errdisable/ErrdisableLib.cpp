#include "errdisable/ErrdisableLib.h"

#include "kel/Dir.h"
#include "records/Errdisable.h"
#include "records/Names.h"

KEL_TYPE( Errdisable::CauseGroup )

namespace ErrdisableLib {

namespace {

Kel::Ptr<Kel::Dir> directory( Dovra::EntityManager const & entityManager, std::string_view path ) {
   auto dir = entityManager.getEntity<Kel::Dir>( path );
   // That a mounted directory is missing is a fault of ours and not of the box.
   KEL_ASSERT( dir );
   return dir;
}

uint8_t packed( bool b1, bool b2, bool b3, bool b4, bool b5 ) {
   // The operators promote to int; five bits always fit.
   return static_cast<uint8_t>( b1 | b2 << 1 | b3 << 2 | b4 << 3 | b5 << 4 );
}

}  // namespace

void ErrdisableCauseGroupInit( Kel::Ptr<Dovra::EntityManager> const & entityManager, Kel::Name const & cause, bool b1,
                               Kel::String8 const & description, bool b2, bool b3, bool b4, bool b5,
                               uint32_t causeGroupType, uint32_t causeGroupPriority, Kel::String8 const & reason ) {
   // Asked for one by one: after a restart the cause may be there, with its entries, and its description not. The
   // description goes first, so that whoever hears of a cause can show what it is about.
   auto const groups = directory( *entityManager, Maintenance::Path::errdisableCauseGroups );
   if( !groups->entityRef( cause ) ) {
      Kel::Ptr<Errdisable::CauseGroup> const group( new Errdisable::CauseGroup( cause ) );
      group->descriptionIs( description );
      group->reasonIs( reason );
      group->groupTypeIs( causeGroupType );
      group->priorityIs( causeGroupPriority );
      group->flagsIs( packed( b1, b2, b3, b4, b5 ) );
      // Last, when its attributes are set: hearers of the insertion see it whole.
      groups->entityIs( group );
   }
   auto const causes = directory( *entityManager, Maintenance::Path::errdisableCauses );
   if( !causes->entityRef( cause ) ) causes->entityIs( new Errdisable::CauseStatus( cause ) );
}

}  // namespace ErrdisableLib
