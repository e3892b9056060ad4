// The owner's stream of events, for ever: a connection that ends is made again.
//
// It is read by fetch(), as an EventSource keeps to itself the comment lines by which a connection of a fleet at rest
// is told from one that is dead. One that has said nothing for so long that three of them are missing counts as lost.

const speaksEvery = Number( document.querySelector( "meta[name=stream-speaks-every]" ).content ) * 1000;  // ms
const firstPause = 1000;                                                                               // ms
const longestPause = 10000;

// "event: NAME", "data: TEXT" and a blank line, in pieces of any size.
export class EventReader {
   #rest = "";
   #name = "";
   #data = [];

   *events( text ) {
      let from = this.#rest.length;
      this.#rest += text;
      let begin = 0;
      for( let end; ( end = this.#rest.indexOf( "\n", from ) ) >= 0; begin = from = end + 1 ) {
         const line = this.#rest.slice( begin, end ).replace( /\r$/, "" );
         if( line === "" && this.#data.length ) yield { name: this.#name, data: JSON.parse( this.#data.join( "\n" ) ) };
         if( line === "" ) [ this.#name, this.#data ] = [ "", [] ];
         else if( line.startsWith( "event:" ) ) this.#name = line.slice( 6 ).trim();
         else if( line.startsWith( "data:" ) ) this.#data.push( line.slice( 5 ) );
      }
      this.#rest = this.#rest.slice( begin );
   }
}

// Until the time is over, or there is a reason to hope: the network is back, or somebody looks.
function pause( milliseconds ) {
   return new Promise( ( resolve ) => {
      const end = () => {
         clearTimeout( timer );
         window.removeEventListener( "online", end );
         document.removeEventListener( "visibilitychange", end );
         resolve();
      };
      const timer = setTimeout( end, milliseconds );
      window.addEventListener( "online", end );
      document.addEventListener( "visibilitychange", end );
   } );
}

async function readOnce( path, handlers ) {
   const ending = new AbortController();
   let watch = 0;
   let reason = "";
   const said = () => {
      clearTimeout( watch );
      watch = setTimeout( () => {
         reason = `it has said nothing for ${Math.round( 3 * speaksEvery / 1000 )} s`;
         ending.abort();
      }, 3 * speaksEvery );
   };
   try {
      said();
      const answer = await fetch( path, { signal: ending.signal, cache: "no-store" } );
      if( !answer.ok ) return `it answers ${answer.status}`;
      const events = new EventReader();
      const decoder = new TextDecoder();
      for( const reader = answer.body.getReader();; ) {
         const { done, value } = await reader.read();
         if( done ) return "it has ended the connection";
         said();
         handlers.said();
         for( const event of events.events( decoder.decode( value, { stream: true } ) ) ) handlers.event( event );
      }
   } catch( fault ) {
      return reason || ( fault instanceof SyntaxError ? "what it says is not understood" : "it cannot be reached" );
   } finally {
      clearTimeout( watch );
      ending.abort();
   }
}

// handlers: begin() of each connection, said() with whatever comes, event( { name, data } ), lost( why ).
export async function follow( path, handlers ) {
   for( let longest = firstPause;; longest = Math.min( longest * 1.7, longestPause ) ) {
      const began = Date.now();
      handlers.begin();
      handlers.lost( await readOnce( path, handlers ) );
      if( Date.now() - began > 3 * longestPause ) longest = firstPause;
      // Pages that have lost the owner together do not all come back in one moment.
      await pause( longest * ( 0.5 + Math.random() / 2 ) );
   }
}
