// What is known of the fleet, as the owner's stream tells it: the newest of each box, and when that was.
//
// The owner's clock is the only one that counts: the browser's merely says how long ago the owner has spoken.
import { standing, standings } from "./words.js";

class Fleet {
   told = null;          // what "fleet" said last; null: nothing yet
   boxes = new Map();    // by name: what "boxes" said last of each, with `stands` of its units and its place in the inventory
   live = false;         // the stream says how things are now
   lost = "";            // why it is not; empty before the first attempt has failed
   version = 0;          // grows with every change of the above
   boxesVersion = 0;     // likewise, of boxes
   #now = 0;             // s, Unix time of the owner
   #nowAt = 0;           // ms, of this clock, when that was said
   #spokenAt = 0;        // ms, when it said anything
   #whole = false;       // the first "boxes" of a connection is of all

   begin() { this.#whole = true; }

   spoke() { this.#spokenAt = Date.now(); }

   lostIs( why ) {
      this.live = false;
      this.lost = why;
      ++this.version;
   }

   // s, Unix time, on the owner's clock
   now() { return this.#now + Math.max( 0, Date.now() - this.#nowAt ) / 1000; }
   // s since the owner has spoken, or null when it never has.
   quietFor() { return this.#spokenAt ? Math.max( 0, Date.now() - this.#spokenAt ) / 1000 : null; }

   nowIs( now ) {
      this.#now = now;
      this.#nowAt = Date.now();
   }

   // False when it knows of other boxes than these: then all are to be read anew.
   tell( { name, data } ) {
      if( name !== "fleet" && name !== "boxes" ) return true;
      this.nowIs( data.now );
      ++this.version;
      if( name === "fleet" ) {
         const known = this.told?.heartbeatSeconds;
         this.told = data;
         if( known !== data.heartbeatSeconds ) for( const box of this.boxes.values() ) this.#judge( box );
      } else {
         this.boxesAre( data.boxes, this.#whole );
         this.#whole = false;
      }
      this.live = this.told !== null && !this.#whole;
      return !this.live || name !== "fleet" || data.counts.boxes === this.boxes.size;
   }

   boxesAre( boxes, all ) {
      const before = this.boxes;
      if( all ) this.boxes = new Map();
      for( const box of boxes ) {
         box.at = this.#now;
         box.place = before.get( box.box )?.place ?? this.boxes.size;
         this.#judge( box );
         this.boxes.set( box.box, box );
      }
      ++this.boxesVersion;
      ++this.version;
   }

   // By the moment at which it was told, as whoever falls silent later is told anew.
   #judge( box ) {
      box.silent = box.heard === null || box.at - box.heard > 3 * ( this.told?.heartbeatSeconds ?? 15 );
      box.stands = box.units.map( ( unit ) => standing( box, unit, box.silent ) );
      box.rank = Math.min( ...box.stands.map( ( stands ) => stands.rank ) );
   }

   // The units that are not in service, the worst first: [ { box, unit, stands } ].
   out() {
      const found = [];
      for( const box of this.boxes.values() ) {
         if( box.rank === standings.service.rank ) continue;
         box.units.forEach( ( unit, i ) => {
            if( box.stands[i] !== standings.service ) found.push( { box, unit, stands: box.stands[i] } );
         } );
      }
      return found.sort( ( a, b ) => a.stands.rank - b.stands.rank || a.box.place - b.box.place );
   }

   plan( id ) { return this.told?.plans.find( ( plan ) => plan.plan === id ); }
   // The values of label "site".
   sites() { return [ ...new Set( [ ...this.boxes.values() ].map( ( box ) => box.labels.site ).filter( Boolean ) ) ].sort(); }
}

export const fleet = new Fleet();
