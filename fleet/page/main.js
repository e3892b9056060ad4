// The page: which view is shown, when it is drawn anew, and the keys.
import { accessView, changedIs, say } from "./actions.js";
import { boxView } from "./box.js";
import { Detail } from "./detail.js";
import { h, show, tellTimes, timeTextIs } from "./dom.js";
import { fleet } from "./fleet.js";
import { filterIs, headline, overview } from "./overview.js";
import { planView } from "./plan.js";
import { follow } from "./stream.js";
import { clock, span } from "./words.js";

const main = document.getElementById( "main" );
const lost = document.getElementById( "lost" );
const filter = document.getElementById( "filter" );
const saidEvery = 5000;  // ms, so that who listens can follow

let route = { kind: "fleet", name: "" };
let detail = null;     // of the box or plan that is shown
let toFocus = false;   // the heading, once there is one

function routeOf( hash ) {
   const found = /^#\/(box|plan)\/([^/]+)$/.exec( hash );
   try {
      return found ? { kind: found[1], name: decodeURIComponent( found[2] ) } : { kind: "fleet", name: "" };
   } catch {
      return { kind: "fleet", name: "" };
   }
}

function routed() {
   route = routeOf( location.hash );
   detail?.close();
   detail = null;
   if( route.kind === "box" ) detail = new Detail( `/v1/boxes/${encodeURIComponent( route.name )}`, redraw );
   if( route.kind === "plan" ) detail = new Detail( `/v1/plans/${encodeURIComponent( route.name )}`, redraw );
   window.scrollTo( 0, 0 );
   toFocus = true;
   redraw();
}

function content() {
   // Once it was told something it is shown, also while it is told anew.
   if( !fleet.live && !fleet.boxesVersion ) {
      const text = fleet.lost ? "Unknown: no connection to the fleet's owner" : "Asking the fleet's owner…";
      return [ h( "header", { class: fleet.lost ? "bad" : "plain" }, h( "h1", { tabindex: -1 }, text ) ) ];
   }
   if( route.kind === "box" ) return boxView( route.name, detail );
   if( route.kind === "plan" ) return planView( route.name, detail, redraw );
   return overview( redraw );
}

function drawLost() {
   lost.hidden = fleet.live || !fleet.lost;
   document.body.classList.toggle( "stale", !fleet.live );
   if( lost.hidden ) return;
   const quiet = fleet.quietFor();
   show( lost, h( "b", null, "No connection to the fleet's owner: " ), `${fleet.lost}. `,
         fleet.told ? `What is shown is how it was ${span( quiet )} ago. ` : "", "It is tried again all the time." );
}

let saidAt = 0;
let saidText = "";
// What the fleet has come to, and no more than that, for who cannot see it.
function tell( text ) {
   document.title = route.kind === "fleet" ? `${text} · fleet` : `${route.name} · ${text} · fleet`;
   if( text === saidText || Date.now() - saidAt < saidEvery ) return;
   if( saidText ) say( text );
   [ saidText, saidAt ] = [ text, Date.now() ];
}

function drawClock() {
   show( document.getElementById( "clock" ), fleet.live ? `Owner's clock ${clock( fleet.now() )}` : "" );
}

// A page that was left open is older than the program once that was upgraded: better nothing than what was so before.
function notUnderstood( fault ) {
   return [ h( "header", { class: "bad" }, h( "h1", { tabindex: -1 }, "What the fleet's owner says is not understood" ),
      h( "p", null, `Load this page anew; where that does not help: maintfleet status. (${fault.message})` ) ) ];
}

let understands = true;  // what was drawn last
function contentOrFault() {
   try {
      const views = content();
      understands = true;
      return views;
   } catch( fault ) {
      understands = false;
      return notUnderstood( fault );
   }
}

function title() {
   if( !fleet.live ) return "Unknown: no connection";
   try {
      return understands ? headline() : "Unknown: not understood";
   } catch {
      return "Unknown: not understood";
   }
}

function draw() {
   if( route.kind === "box" ) detail.newestIs( fleet.boxes.get( route.name ) );
   if( route.kind === "plan" ) detail.newestIs( JSON.stringify( fleet.plan( route.name ) ) );
   show( main, ...contentOrFault() );
   show( document.getElementById( "access" ), ...accessView() );
   drawLost();
   drawClock();
   tell( title() );
   const heading = toFocus && main.querySelector( "h1[tabindex]" );
   if( !heading || !fleet.told ) return;
   toFocus = false;
   if( document.activeElement !== filter ) heading.focus( { preventScroll: true } );
}

let drawing = false;
// Once a frame at most; where nobody looks there are no frames, and the title is still to be right.
function redraw() {
   if( drawing ) return;
   drawing = true;
   const now = () => {
      drawing = false;
      draw();
   };
   if( document.hidden ) setTimeout( now, 500 );
   else requestAnimationFrame( now );
}

// Once a second: all that changes by itself.
function tick() {
   tellTimes( main );
   drawClock();
   if( !fleet.live ) drawLost();
   // Also where no frame is drawn, as nobody looks.
   if( title() !== saidText ) tell( title() );
}

const handlers = {
   begin: () => fleet.begin(),
   said: () => fleet.spoke(),
   event: ( event ) => {
      fleet.tell( event );
      redraw();
   },
   lost: ( why ) => {
      fleet.lostIs( why );
      redraw();
   },
};

// From one plan, box or group to the next.
function step( by ) {
   const rows = [ ...main.querySelectorAll( "[data-row]" ) ].filter( ( row ) => row.checkVisibility() );
   const at = rows.indexOf( document.activeElement );
   const to = rows[at < 0 ? ( by > 0 ? 0 : rows.length - 1 ) : Math.min( Math.max( at + by, 0 ), rows.length - 1 )];
   to?.focus();
   to?.scrollIntoView( { block: "nearest" } );
}

function filtering( text ) {
   filterIs( text.trim() );
   if( route.kind === "fleet" ) return redraw();
   toFocus = false;
   location.hash = "#/";
}

function keyed( event ) {
   if( event.ctrlKey || event.metaKey || event.altKey || document.getElementById( "ask" ).open ) return;
   const typing = event.target.matches( "input, select, textarea" );
   const steps = { j: 1, k: -1, ArrowDown: 1, ArrowUp: -1 };
   if( event.target === filter ) {
      if( event.key === "Escape" ) {
         filter.value = "";
         filtering( "" );
         main.focus();
      } else if( event.key === "ArrowDown" || event.key === "Enter" ) {
         event.preventDefault();
         // What was just typed may not have been drawn yet.
         draw();
         step( 1 );
      }
   } else if( typing ) {
      return;
   } else if( event.key === "/" ) {
      event.preventDefault();
      filter.focus();
      filter.select();
   } else if( event.key in steps && ( event.key.length === 1 || event.target.matches( "[data-row]" ) ) ) {
      event.preventDefault();
      step( steps[event.key] );
   }
}

// Of a moment that is to come, how long until then.
timeTextIs( ( at, as ) => {
   const ago = fleet.now() - at;
   return as === "for" ? span( ago ) : `${span( ago )} ago`;
} );
changedIs( redraw );
window.addEventListener( "hashchange", routed );
document.addEventListener( "visibilitychange", redraw );
document.addEventListener( "keydown", keyed );
filter.addEventListener( "input", () => filtering( filter.value ) );
setInterval( tick, 1000 );
routed();
follow( "/v1/stream", handlers );
