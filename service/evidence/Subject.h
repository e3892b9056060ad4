// What the ledger knows of an interface, of each account of it, and of each unit.
//
// Owned by Accounting, which judges them. A subject and its places hold one another until the places are closed.
#pragma once

#include <string>
#include <vector>

#include "evidence/Recorder.h"
#include "evidence/Watched.h"
#include "kel/Few.h"
#include "kel/InBlocks.h"

namespace Evidence {

class Accounting;
struct Place;

// The accounts of one unit, and how many of them stand in the way.
struct UnitBook final : Kel::PtrInterface {
   explicit UnitBook( Kel::Name const & unit ) : record( new UnitAccounts( unit ) ) {}

   Kel::Ptr<UnitAccounts> const record;
   std::vector<Kel::Ptr<Place>> places;
   std::size_t unsettled = 0;
   std::size_t loud = 0;
   std::size_t wereLoud = 0;  // and are waiting now
   bool open = true;
};

// An interface and the accounts that there are of it.
struct alignas( 64 ) Subject final : Watched, Kel::InBlocks<Subject> {
   Subject( Accounting & in, Lumo::IntfId intf );

   void onReading( Run::Step const & step ) override;
   void onSettled( double from, double to, Interface::IntfRates const & rates ) override;
   void onBreak( Run::Step const & step ) override;
   void onIntfEvent( char const * kind, std::string const & text ) override;
   void handleSpike( Run::Step const & step );
   void placeIs( Kel::Ptr<Place> const & place );
   void placeDel( Kel::Ptr<Place> const & place );
   // All its accounts have been found to say what is so; which Said that is.
   void saidIs();

   static constexpr std::size_t hotBytes = 128;  // from its beginning: what a sample looks at, readings left out
   // From memory, what is written to: steps 1 and 2 of a loud sample, 1 to 4 of one that settles.
   void fetchLoud( std::size_t step ) const;
   void fetchSettled( std::size_t step ) const;

   Accounting & accounting;
   // To be changed by the two above only. Readings are settled into the first one's window; any other has them at once.
   Kel::Few<Kel::Ptr<Place>> places;
   Kel::Ptr<Account> onlyAccount;  // of the only place; null where there is none, or another

 private:
   void handlePlaces();
};

// One account: the interface as one unit sees it.
struct Place final : Kel::PtrInterface, Kel::InBlocks<Place> {
   Place( Kel::Ptr<UnitBook> const & in, Kel::Ptr<Subject> const & of, Kel::Ptr<WindowIntf> const & window,
          uint32_t cells );

   [[nodiscard]] Watched const & watched() const { return *subject; }
   // As the window says, or is to say.
   void handleLeftOut();
   void handleSeen();
   // Values of the profile in force, into the account and the window.
   void noteProfile();
   // As it is to ask the interface for its rates.
   void rateSourceIs( RateSource * source ) const {
      if( recorder.record() ) recorder.record()->rateSourceIs( source );
   }

   bool leftOut : 1 = false;  // of the proof
   bool wasLoud : 1 = false;  // and what it is now does not say that this is over
   bool seen = false;         // a link of that name, since the request
   bool judged = false;       // at least once
   bool open = true;          // the account is still kept
   Recorder recorder;         // early: what is settled goes here
   Kel::Ptr<Account> const record;
   double quietSince = 0;  // s; 0: there is no run; as it stands in the record, as does this:
   Judgement judgement;
   Kel::Ptr<UnitBook> const book;
   Kel::Ptr<Subject> const subject;
};

}  // namespace Evidence
