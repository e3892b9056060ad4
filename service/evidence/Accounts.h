// What the service knows of each interface of a unit on its way through maintenance: its account; and of the unit as a
// whole: whether it is ready.
//
// Written by the Ledger, read by views, stages and whoever watches the records. A unit has them while it enters, is in,
// or leaves maintenance. They are made anew when the service starts: what was known before is not known now.
#pragma once

#include "dovra/EntityManager.h"
#include "kel/Attributes.h"
#include "kel/InBlocks.h"
#include "records/IntfId.h"

namespace Evidence {

// What is known now. Only the last four can ever be settled.
enum class Verdict : uint8_t {
   missing = 0,    // no link of that name, and none seen since the request
   unwatched = 1,  // up, but nobody samples it
   waiting = 2,    // sampled, but no reading yet, or none for too long
   loud = 3,       // the last reading was not below the threshold
   quiet = 4,      // every reading since quietSince was
   down = 5,       // was there, is operationally down
   gone = 6,       // was there, has vanished
   held = 7,       // down by our shutdown, and seen to be down
   leftOut = 8,    // taken out of the proof by whoever asked to enter
};

constexpr char const * enumName( Verdict v ) {
   switch( v ) {
      case Verdict::missing: return "missing";
      case Verdict::unwatched: return "unwatched";
      case Verdict::waiting: return "waiting";
      case Verdict::loud: return "loud";
      case Verdict::quiet: return "quiet";
      case Verdict::down: return "down";
      case Verdict::gone: return "gone";
      case Verdict::held: return "held";
      case Verdict::leftOut: return "left out";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( Verdict )

enum class Direction : uint8_t { none = 0, in = 1, out = 2 };

constexpr char const * enumName( Direction d ) {
   switch( d ) {
      case Direction::none: return "none";
      case Direction::in: return "in";
      case Direction::out: return "out";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( Direction )

// A loud reading, in the direction that carried more.
struct LoudReading {
   KEL_VALUE( LoudReading, "Evidence::LoudReading" )
   KEL_FIELD( double, time )          // s; 0: there was none
   KEL_FIELD( Direction, direction )  //
   KEL_FIELD( double, bitsRate )      // bit/s
   KEL_VALUE_END( LoudReading )
};

// One interface in one unit, without what changes with every reading: that is asked of the ledger. Times are seconds on
// the loop's clock; 0 stands for never.
//
// Of a loud one `lastLoud` is written at each sample: it stands first, in one line with whether anybody is to be told.
class alignas( 64 ) Account final : public Kel::Entity, public Kel::InBlocks<Account> {
   KEL_ENTITY( Account, "Evidence::Account", Lumo::IntfId, intfId )
 private:
   LoudReading lastLoud_;

 public:
   KEL_ATTR_NOTIFY( Verdict, verdict, onVerdict )
   KEL_ATTR( double, since )  // when the verdict was reached; down and gone: from when they count
   KEL_ATTR_NOTIFY( bool, settled, onSettled )
   KEL_ATTR( double, quietSince )         // beginning of the time that the run of quiet readings covers
   KEL_ATTR_BY( LoudReading, lastLoud )   // since the request; kept when it is long quiet again
   KEL_COUNTER( uint32_t, breaks )        // of runs of quiet readings, since the request
   KEL_COUNTER( uint32_t, spikes )        // times that it became loud in maintenance
   KEL_ATTR( Kel::String8, profileName )  // of the profile in force, by which it is judged
   KEL_ENTITY_END

   [[nodiscard]] LoudReading const & lastLoud() const { return lastLoud_; }
   void lastLoudIs( LoudReading const & loud ) {
      if( lastLoud_ == loud ) return;
      lastLoud_ = loud;
      kelChangedQuietly<KelLink_lastLoud, false>();
   }
};

// One unit. Ready: every account is settled at the same moment. Disturbed: in maintenance, and traffic is back.
class UnitAccounts final : public Kel::Entity {
   KEL_ENTITY( UnitAccounts, "Evidence::UnitAccounts", Kel::Name, unitName )
   KEL_ATTR_NOTIFY( bool, ready, onReady )
   KEL_ATTR_NOTIFY( bool, disturbed, onDisturbed )
   KEL_CHILDREN( Account, Lumo::IntfId, account, onAccount )
   KEL_ENTITY_END
};

class UnitAccountsDir final : public Kel::Entity {
   KEL_ENTITY( UnitAccountsDir, "Evidence::UnitAccountsDir", Kel::Name, dirName )
   KEL_CHILDREN( UnitAccounts, Kel::Name, unit, onUnit )
   KEL_ENTITY_END
};

// Accounts stand here in the database; made by whoever asks first.
[[nodiscard]] Kel::Ptr<UnitAccountsDir> unitAccountsDir( Dovra::EntityManager & database );

}  // namespace Evidence
