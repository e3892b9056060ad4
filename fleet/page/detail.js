// What is told of one box, or of one plan, on request: read again when the stream says that it has changed, and every
// few seconds, as rates and steps change in between.
import { fleet } from "./fleet.js";

const againAfter = 3000;  // ms

export class Detail {
   data = null;
   fault = "";        // why it is not known
   #path;
   #changed;
   #timer = 0;
   #reading = false;
   #seen = null;

   constructor( path, changed ) {
      this.#path = path;
      this.#changed = changed;
      this.#read();
   }

   close() {
      clearTimeout( this.#timer );
      this.#changed = null;
   }

   // `newest`: what the stream says of it; another one than before means that there is more to know.
   newestIs( newest ) {
      if( newest === this.#seen ) return;
      this.#seen = newest;
      if( this.data && !this.#reading ) this.#read();
   }

   async #read() {
      clearTimeout( this.#timer );
      this.#reading = true;
      if( !document.hidden ) await this.#ask();
      this.#reading = false;
      if( !this.#changed ) return;
      this.#timer = setTimeout( () => this.#read(), againAfter );
      this.#changed();
   }

   async #ask() {
      try {
         const answer = await fetch( this.#path, { cache: "no-store", signal: AbortSignal.timeout( 10000 ) } );
         const body = await answer.json();
         if( !answer.ok ) throw new Error( body.error ?? `the owner answers ${answer.status}` );
         this.data = body;
         this.fault = "";
      } catch( fault ) {
         this.fault = fault.name === "TypeError" || fault.name === "TimeoutError" ? "the owner does not answer" : fault.message;
         // Of what is no longer there nothing old is shown; of what cannot be read, with the reason beside it.
         if( fleet.live && !( fault instanceof TypeError ) ) this.data = null;
      }
   }
}
