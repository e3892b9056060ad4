// The octet counters of interfaces that do not exist: set to a value, or growing at a rate from a moment on.
//
// Written to the counter table when the plug-in reads it, as the agent does with the kernel's; as there, a read can
// fail, and the counters behind a row can start again. A rate goes on when a counter is set, and starts from what the
// counter then says:
//
//    octets = octets at that moment + floor( bit/s * seconds since / 8 )
#pragma once

#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

#include "brim/MaybeU63.h"
#include "quill/CounterWriter.h"

namespace Sim {

enum class Direction { in, out };

class InventedCounters {
 public:
   // The writer outlives this.
   explicit InventedCounters( KelQuill::CounterWriter & writer ) : writer_( writer ) {}

   // From now on the interface has counters, both at 0; a second call changes nothing. The two below imply it. What is
   // said of an interface whose link has gone counts from when that comes back.
   void intfIs( Lumo::IntfId intf );
   // None: the counter has no value.
   void octetsIs( Lumo::IntfId intf, Direction direction, Brim::MaybeU63 octets );
   void bitsPerSecondIs( Lumo::IntfId intf, Direction direction, double bitsPerSecond );  // not negative, finite
   // The interface has no counters any more; absent is no error.
   void del( Lumo::IntfId intf );

   // A link with counters has come; where they are there already, nothing changes. One that comes back goes on from
   // what was last published of it, at the rates that were said meanwhile, and its row is marked.
   void linkIs( Lumo::IntfId intf );
   // It has gone, and its row with it. Its rates are kept for the link that may come back.
   void linkDel( Lumo::IntfId intf );

   // From now on reads of these interfaces' counters fail, and of no others: they go on counting, and their rows stay
   // as they were last read. An interface need not be there yet.
   void unread( std::set<Lumo::IntfId> intfs ) { unread_ = std::move( intfs ); }
   [[nodiscard]] bool has( Lumo::IntfId intf ) const { return writer_.hasRow( intf ); }
   // The source starts again from 0, for an interface that is there. The row goes on from where it was last read; what
   // was counted since is lost. The next read marks it.
   void restartCounters( Lumo::IntfId intf );

   // Writes what the counters are now.
   void refresh( KelQuill::Rows rows );

 private:
   struct Flow {
      Brim::MaybeU63 octets = 0;  // at `since`
      double bitsPerSecond = 0;
      double since = 0;         // s
      Brim::MaybeU63 read = 0;  // as last written
      [[nodiscard]] Brim::MaybeU63 now() const;
   };
   struct Flows {
      Flow in, out;
      bool restarted = false;  // since the last read
      bool linked = true;      // false: its link has gone, so nothing is counted and there is no row
      [[nodiscard]] Flow & of( Direction direction ) { return direction == Direction::in ? in : out; }
      [[nodiscard]] Brim::MaybeU63 now( Flow const & flow ) const { return linked ? flow.now() : flow.octets; }
   };

   Flows & flows( Lumo::IntfId intf );
   void write( Lumo::IntfId intf );

   KelQuill::CounterWriter & writer_;
   std::unordered_map<Lumo::IntfId, Flows> flows_;
   std::set<Lumo::IntfId> unread_;
};

}  // namespace Sim
