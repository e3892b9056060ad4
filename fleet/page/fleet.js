// What is known of the fleet, as the owner's stream tells it: the newest of each box, and when that was.
//
// The owner's clock is the only one that counts: the browser's merely says how long ago the owner has spoken.
import { standing, standings } from "./words.js";

class Fleet {
   told = null;          // what "fleet" said last; null: nothing yet
   boxes = new Map();    // by name: what "boxes" said last of each, with `stands` of its units
   live = false;         // the stream says how things are now
   lost = "";            // why it is not; empty before the first attempt has failed
   boxesVersion = 0;     // grows with every change of `boxes`
   #now = 0;             // s, Unix time of the owner
   #nowAt = 0;           // ms, of this clock, when that was said
   #spokenAt = 0;        // ms, when it said anything
   #begun = false;       // the connection has said which boxes there are

   begin() { this.#begun = false; }

   spoke() { this.#spokenAt = Date.now(); }

   lostIs( why ) {
      this.live = false;
      this.lost = why;
   }

   // s, Unix time, on the owner's clock
   now() { return this.#now + Math.max( 0, Date.now() - this.#nowAt ) / 1000; }
   // s since the owner has spoken, or null when it never has.
   quietFor() { return this.#spokenAt ? Math.max( 0, Date.now() - this.#spokenAt ) / 1000 : null; }

   tell( { name, data } ) {
      if( name !== "fleet" && name !== "boxes" ) return;
      this.#now = data.now;
      this.#nowAt = Date.now();
      if( name === "fleet" ) {
         const known = this.told?.heartbeatSeconds;
         this.told = data;
         if( known !== data.heartbeatSeconds ) for( const box of this.boxes.values() ) this.#judge( box );
      } else {
         this.#boxesAre( data.boxes, data.first || !this.#begun );
         this.#begun = true;
      }
      this.live = this.told !== null && ( this.#begun || this.told.counts.boxes === 0 );
   }

   // Those that have changed; or the first of all, after which what was known before is no more.
   #boxesAre( boxes, anew ) {
      if( anew ) this.boxes = new Map();
      for( const box of boxes ) {
         box.at = this.#now;
         this.#judge( box );
         this.boxes.set( box.box, box );
      }
      ++this.boxesVersion;
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
      return found.sort( ( a, b ) => a.stands.rank - b.stands.rank || byName( a.box, b.box ) );
   }

   plan( id ) { return this.told?.plans.find( ( plan ) => plan.plan === id ); }
   // The values of label "site".
   sites() { return [ ...new Set( [ ...this.boxes.values() ].map( ( box ) => box.labels.site ).filter( Boolean ) ) ].sort(); }
}

// leaf-9 before leaf-10.
const names = new Intl.Collator( "en", { numeric: true } );
export const byName = ( a, b ) => names.compare( a.box, b.box );

export const fleet = new Fleet();
