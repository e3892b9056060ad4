// The octet counters of interfaces that do not exist: set to a value, or growing at a rate from a moment on.
//
// Written to the counter table when the plug-in reads it, as the agent does with the kernel's. A rate goes on when a
// counter is set, and starts from what the counter then says:
//
//    octets = octets at that moment + floor( bit/s * seconds since / 8 )
#pragma once

#include <map>
#include <optional>

#include "brim/MaybeU63.h"
#include "quill/CounterWriter.h"

namespace Sim {

enum class Direction { in, out };

class InventedCounters {
 public:
   // The writer outlives this.
   explicit InventedCounters( KelQuill::CounterWriter & writer ) : writer_( writer ) {}

   // From now on the interface has counters, both at 0; a second call changes nothing. The two below imply it.
   void intfIs( Lumo::IntfId intf );
   // None: the counter has no value.
   void octetsIs( Lumo::IntfId intf, Direction direction, Brim::MaybeU63 octets );
   void bitsPerSecondIs( Lumo::IntfId intf, Direction direction, double bitsPerSecond );  // not negative, finite
   // The interface has no counters any more; absent is no error.
   void del( Lumo::IntfId intf );

   // Writes what the counters are now.
   void refresh();

 private:
   struct Flow {
      Brim::MaybeU63 octets = 0;  // at `since`
      double bitsPerSecond = 0;
      double since = 0;  // s
      [[nodiscard]] Brim::MaybeU63 now() const;
   };
   struct Flows {
      Flow in, out;
   };

   Flow & flow( Lumo::IntfId intf, Direction direction );
   void write( Lumo::IntfId intf );

   KelQuill::CounterWriter & writer_;
   std::map<Lumo::IntfId, Flows> flows_;
};

}  // namespace Sim
