// A ledger in the memory of a test.
#pragma once

#include "memory/Ledger.h"

namespace FleetTest {

class BookLedger : public Fleet::Ledger {
 public:
   using Fleet::Ledger::commit;
   [[nodiscard]] Rows rows() const override { return kept; }
   void commit( Changes const & changes, Fleet::Records const & happened ) override {
      for( auto const & [key, row] : changes ) {
         if( row ) {
            kept[key] = *row;
         } else {
            kept.erase( key );
         }
      }
      for( Fleet::Record const & record : happened ) records.emplace_back( record ).number = records.size();
   }
   [[nodiscard]] Fleet::Records happened( Fleet::RecordQuery const & query ) const override {
      auto const fits = []( std::string const & wanted, std::string const & its ) {
         return wanted.empty() || wanted == its;
      };
      Fleet::Records found;
      for( auto record = records.rbegin(); record != records.rend() && found.size() < query.most; ++record ) {
         bool const wanted = fits( query.box, record->box ) && fits( query.unit, record->unit ) &&
                             fits( query.plan, record->plan ) && record->time >= query.since;
         if( wanted && record->number < query.before ) found.push_back( *record );
      }
      return found;
   }

   Rows kept;
   Fleet::Records records;
};

}  // namespace FleetTest
