// The inside of the ledger: subjects, accounts and units, and how a change of one reaches the others.
//
//    record --> Sources --> Subject (one interface: Watched) --> Place (its account in one unit) --> UnitBook
//
// A change is noted at once and judged at the end of the turn. Accounts are written then, and each write may run
// anyone's handler: so whatever has more to do after one asks whether its place is still open, and nothing that is
// iterated can be changed by a handler.
#pragma once

#include <array>
#include <limits>
#include <unordered_map>
#include <vector>

#include "evidence/Ledger.h"
#include "evidence/Subject.h"
#include "kel/ActivityLoop.h"

namespace Evidence {

class Accounting final : public Kel::TurnEnd, SourcesListener {
 public:
   Accounting( Kel::Ptr<UnitAccountsDir> const & accounts, Maintenance::MaintenanceState const & state,
               Kel::Ptr<KelQuill::EntityManager> const & counters, Ledger::NeverWatched neverWatched,
               Service::EventLog & events );
   ~Accounting() override;

   void unitIs( Kel::Name const & unit, std::vector<Lumo::IntfId> const & intfs, Kel::Ptr<Window> const & window );
   void unitDel( Kel::Name const & unit );
   void allTouched();
   // The unit, whatever has changed.
   void judge( UnitBook & book );

   // Null when there is none.
   [[nodiscard]] Kel::Ptr<UnitBook> book( Kel::Name const & unit ) const;
   [[nodiscard]] Place const * place( Kel::Name const & unit, Lumo::IntfId intf ) const;
   [[nodiscard]] Kel::Ptr<Subject> find( Lumo::IntfId intf ) const;
   // It enters or is in maintenance.
   [[nodiscard]] bool wantsProof( UnitBook const & book ) const;
   [[nodiscard]] Sources const & sources() const { return sources_; }
   // Of an interface as one unit sees it.
   void tell( Place const & place, Service::Told what ) const;

   void onTurnEnd() override { judgeTouched(); }

 private:
   class KelAlarm final : public Kel::Clock::NotifieeConst {
    public:
      explicit KelAlarm( Accounting & owner ) : NotifieeConst( Kel::activityLoop().clock() ), owner_( owner ) {}
      void onTimeMin() override { owner_.handleAlarm(); }

    private:
      Accounting & owner_;
   };

   void onSample( Subject & subject, uint32_t & noted ) override;
   void onLink( Lumo::IntfId intf, LinkChange change ) override;
   void onMonitor( Lumo::IntfId intf, MonitorChange change ) override;
   void onEntry( Lumo::IntfId intf ) override;
   void onIntf( Lumo::IntfId intf ) override;
   void onMembers() override;
   void onUnit( Kel::Name const & unit ) override;
   void onProfiles() override { allTouched(); }

   Kel::Ptr<Subject> subject( Lumo::IntfId intf );
   // It is judged at the end of the turn.
   void touch( Subject & subject );
   void closePlace( Kel::Ptr<Place> const & place );
   void forgetUnused( Subject & subject );

   // One that was touched. `stands`: what is to be said of it stands in its accounts already, so it need not be judged
   // unless something happens meanwhile.
   struct Touched {
      // Not counted: nothing of it is looked at before it is its turn. What is forgotten before the walk is kept below,
      // and what is forgotten in it lives until the end of the dispatch.
      Subject * subject;
      bool stands = false;

      void fetch( std::size_t step ) const;
   };

   void judgeTouched();
   bool apply( Subject & subject );
   [[nodiscard]] bool stands( Subject & subject );
   [[nodiscard]] static Outlook outlookOf( Place const & place, Watched const & watched );
   void judgeSubject( Subject & subject );
   void judgePlace( Place & place );
   void tellVerdict( Place const & place ) const;
   void count( Place & place, Judgement const & now );
   static void write( Place & place, bool begins );
   void judgeUnit( UnitBook & book );
   void handleAlarm();
   // What is said of it changes by waiting alone, with its last reading or at `time`; at no time, for what is not.
   void waitsFor( Subject & subject, double time );
   void waitsToGoStale( Subject & subject, double stale );
   void waitsNot( Subject & subject );
   void alarmIs();

   Kel::Ptr<UnitAccountsDir> const accounts_;
   Maintenance::MaintenanceState const & state_;
   Service::EventLog & events_;
   std::unordered_map<Lumo::IntfId, Kel::Ptr<Subject>> subjects_;
   std::unordered_map<Kel::Name, Kel::Ptr<UnitBook>> books_;
   std::vector<Touched> touched_;
   std::vector<Kel::Ptr<Subject>> forgotten_;  // of which some may be in it
   uint32_t walk_ = 1;                         // which one the touched are for
   std::vector<Kel::Ptr<UnitBook>> touchedBooks_;
   // Who is judged joins the current queue, and leaves the one that he was in. When the other is empty, what the first
   // of it waited for is past, and it is the next that is joined: so as long as all are sampled, nobody is looked at
   // because of what he once waited for.
   struct Queue {
      double first = never;      // s, not after any of it changes
      std::size_t subjects = 0;  // in it
   };
   static constexpr double never = std::numeric_limits<double>::infinity();
   std::array<Queue, 2> queues_;
   uint8_t current_ = 0;
   bool allTouched_ = false;
   bool membersMoved_ = false;
   KelAlarm alarm_;
   Sources sources_;  // last: it tells at once of what is there
};

// "out 3 Mbps"
[[nodiscard]] std::string loudText( LoudReading const & loud );
// What keeps an account from being settled or, when it is, what it rests on; for people.
[[nodiscard]] std::string whyOf( Place const & place );

}  // namespace Evidence
