// What an operator asks: what is it waiting for, is it ready, and how do we know. Answers made from the records.
//
// Changes nothing but that accounts are judged once more when a unit is asked for, so that an answer is never older
// than the question.
#pragma once

#include <optional>
#include <string>

#include "links/HeldLinks.h"
#include "units/ConfigRecords.h"
#include "units/UnitService.h"
#include "views/Answers.h"

namespace Service {

class Views {
 public:
   // All outlive this.
   Views( Maintenance::MaintenanceState const & state, ConfigRecords const & config, UnitService const & units,
          Evidence::Ledger & ledger, Kel::Ptr<HeldLinkDir const> const & held )
      : state_( state ), config_( config ), units_( units ), ledger_( ledger ), held_( held ) {}

   [[nodiscard]] UnitsAnswer units() const;                                         // in the order of the configuration
   [[nodiscard]] std::optional<UnitAnswer> unit( std::string const & name ) const;  // none when there is no such unit
   [[nodiscard]] std::optional<ReadyAnswer> ready( std::string const & unit ) const;
   [[nodiscard]] InterfacesAnswer interfaces() const;  // of all units, in the order of the configuration
   // When the unit came into its state; none where that is not known.
   [[nodiscard]] Maybe<double> since( Maintenance::Unit::Status const & unit ) const;
   // The unit's accounts of this interface in every unit that has it.
   [[nodiscard]] List<UnitAnswer> explain( std::string const & intf ) const;
   [[nodiscard]] static RequestAnswer request( char const * verb, std::string const & unit,
                                               UnitService::Answer const & answer );
   [[nodiscard]] std::string unitNames() const;  // "a, b, c", for error texts

 private:
   [[nodiscard]] Kel::Ptr<Evidence::UnitAccounts> accounts( Kel::Name const & unit ) const;
   [[nodiscard]] AccountAnswer account( Kel::Name const & unit, Lumo::IntfId intf ) const;
   [[nodiscard]] Maybe<Text> note( Evidence::UnitAccounts const & book ) const;
   [[nodiscard]] UnitAnswer unit( Maintenance::Unit::Status const & unit ) const;
   [[nodiscard]] InterfaceAnswer interface( Lumo::IntfId intf ) const;
   [[nodiscard]] Text operStatus( Lumo::IntfId intf ) const;
   [[nodiscard]] bool shutDown( Lumo::IntfId intf ) const;

   Maintenance::MaintenanceState const & state_;
   ConfigRecords const & config_;
   UnitService const & units_;
   Evidence::Ledger & ledger_;
   Kel::Ptr<HeldLinkDir const> const held_;
};

}  // namespace Service
