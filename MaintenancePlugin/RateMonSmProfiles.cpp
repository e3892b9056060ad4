// Which profile applies to an interface, and what happens to running monitors when profiles change.
#include "RateMonSm.h"
#include "RateMonTrace.h"

namespace MaintenanceMode {

using Maintenance::Profile::defaultProfileName;
using Maintenance::Profile::ProfileType;

namespace {

// The name selected for the interface; empty when it has no membership record or nothing is selected.
Kel::String8 selectedName( RateMonSmInputs const & in, Lumo::IntfId intf ) {
   auto const member = in.intfToGroupDir->intfToGroup( intf );
   auto const * const key = member ? member->selectedProfile( ProfileType::interface ) : nullptr;
   return key ? key->name : Kel::String8();
}

}  // namespace

Kel::String8 RateMonSm::getIntfProfileName( Lumo::IntfId intf ) const { return selectedName( in(), intf ); }

bool RateMonSm::usingDefaultProfile( Lumo::IntfId intf ) const {
   return selectedName( in(), intf ) == defaultProfileName();
}

Kel::Ptr<IntfMaintenanceProfile::Config const> RateMonSm::getIntfProfile( Lumo::IntfId intf ) const {
   TRACE( 9, "intf " << intf );
   Kel::String8 name = selectedName( in(), intf );
   if( name == defaultProfileName() ) name = in().defaultIntfProfile->profileName();
   Kel::Ptr<IntfMaintenanceProfile::Config const> profile;
   if( !name.empty() ) profile = in().intfProfileConfigDir->config( name );
   // Nothing selected, or not configured yet: the configuration's own default stands in, so that a monitor always has
   // one.
   if( !profile ) profile = in().intfProfileConfigDir->config( defaultProfileName() );
   return profile;
}

void RateMonSm::handleIntfProfileConfig( Kel::String8 const & profileName ) {
   if( in().intfProfileConfigDir->config( profileName ) ) {
      TRACE( 5, "[add] intf profile " << profileName );
      addProfile( profileName );
   } else {
      TRACE( 5, "[delete] intf profile " << profileName );
      deleteProfile( profileName );
   }
}

void RateMonSm::addProfile( Kel::String8 const & profileName ) {
   for( auto [intf, intfMonSm] : intfMonIterator() ) {
      if( !serving() ) return;
      KEL_ASSERT( intfMonSm->intfProfile() );
      if( getIntfProfileName( intf ) != profileName ) continue;
      // It ran on the default as long as the profile that is selected for it did not exist.
      if( intfMonSm->intfProfile()->profileName() != profileName ) {
         counters()->numIntfMonPendingProfileResolvedInc( 1 );
      }
      intfMonSm->intfProfileIs( getIntfProfile( intf ) );
   }
}

void RateMonSm::deleteProfile( Kel::String8 const & profileName ) {
   for( auto [intf, intfMonSm] : intfMonIterator() ) {
      if( !serving() ) return;
      if( intfMonSm->intfProfile()->profileName() != profileName ) continue;
      counters()->numIntfMonProfileDeleteInc( 1 );
      intfMonSm->intfProfileIs( getIntfProfile( intf ) );
   }
}

void RateMonSm::handleDefaultIntfProfile() {
   TRACE( 5, "default intf profile " << in().defaultIntfProfile->profileName() );
   for( auto [intf, intfMonSm] : intfMonIterator() ) {
      if( !serving() ) return;
      // Not those that run on the default because their own profile is missing: they were never meant to follow it.
      if( !usingDefaultProfile( intf ) ) continue;
      counters()->numIntfMonDefProfileUpdateInc( 1 );
      intfMonSm->intfProfileIs( getIntfProfile( intf ) );
   }
}

}  // namespace MaintenanceMode
