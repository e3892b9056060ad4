// What an operator asks first: what is it waiting for. Units and interfaces as answers made from the records.
//
// Reads records, changes nothing. Rates are in bit/s, spans in seconds.
#pragma once

#include <string>

#include "kel/Json.h"
#include "state/MaintenanceState.h"
#include "units/ConfigRecords.h"

namespace Service {

class UnitView {
 public:
   UnitView( Maintenance::MaintenanceState const & state, ConfigRecords const & config )
      : state_( state ), config_( config ) {}

   [[nodiscard]] Kel::Value units() const;                           // in the order of the configuration
   [[nodiscard]] Kel::Value unit( std::string const & name ) const;  // null when there is none
   [[nodiscard]] Kel::Value interfaces() const;                      // of all units, in the order of the configuration
   [[nodiscard]] std::string unitNames() const;                      // "a, b, c", for error texts

 private:
   [[nodiscard]] Kel::Value interfaceView( Lumo::IntfId intf, std::string const & unit ) const;
   [[nodiscard]] Kel::Value unitNote( Maintenance::Unit::Status const & unit ) const;
   [[nodiscard]] bool served( std::string const & unit ) const;
   [[nodiscard]] bool linkUp( Lumo::IntfId intf ) const;
   [[nodiscard]] std::string linkTrouble( Lumo::IntfId intf ) const;
   [[nodiscard]] Kel::Ptr<IntfMaintenanceProfile::Config const> profile( Kel::String8 const & name ) const;
   [[nodiscard]] std::string waitingFor( Lumo::IntfId intf, Maintenance::MonIntfStatus const & status,
                                         IntfMaintenanceProfile::Config const & profile ) const;
   [[nodiscard]] bool shutDown( Lumo::IntfId intf ) const;

   Maintenance::MaintenanceState const & state_;
   ConfigRecords const & config_;
};

}  // namespace Service
