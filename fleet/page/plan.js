// One plan: its waves, its members, and its brake.
import { h } from "./dom.js";
import { change, mayChange, orderBack } from "./actions.js";
import { fleet } from "./fleet.js";
import { age, boxLink, memberState, planState, plural, shape, span, wordOf } from "./words.js";

const membersAtMost = 300;
const unfolded = new Map();  // "plan/wave" -> whether, where somebody has said so

const splitUnit = ( name ) => [ name.slice( 0, name.lastIndexOf( "/" ) ), name.slice( name.lastIndexOf( "/" ) + 1 ) ];

const pauseIt = ( plan ) => change( { title: `Pause ${plan.plan}?`, verb: "Pause", path: pathOf( plan, "pause" ), query: [],
   text: "It orders nothing more until somebody resumes it. What is out stays out.", done: `${plan.plan} is paused` } );

const cancelIt = ( plan ) => change( { title: `Cancel ${plan.plan}?`, verb: "Cancel the plan", path: pathOf( plan, "cancel" ), query: [],
   text: "It orders nothing more, ever. What is out stays out until it is ordered back.", done: `${plan.plan} is cancelled` } );

function resumeIt( plan ) {
   const left = plan.members.flat().filter( ( member ) => member.step !== "done" );
   // Those that it is paused for come first; a person seldom goes on without the others.
   const choices = left.filter( ( member ) => member.fault || member.step !== "waiting" )
      .sort( ( a, b ) => ( a.fault ? 0 : 1 ) - ( b.fault ? 0 : 1 ) ).slice( 0, 20 )
      .map( ( member ) => ( { value: member.unit, text: `${member.unit}: ${member.fault || member.step}` } ) );
   change( { title: `Resume ${plan.plan}?`, verb: "Resume", kind: "go", path: pathOf( plan, "resume" ), query: [], choice: "without", choices,
             choose: "Go on without, and leave as it is:", done: `${plan.plan} goes on`,
             text: `It was paused: ${plan.why}. It will pause again for what has not changed.` } );
}

const pathOf = ( plan, what ) => `/v1/plans/${encodeURIComponent( plan.plan )}/${what}`;

function brake( plan ) {
   const over = plan.state === "finished" || plan.state === "cancelled";
   const out = plan.members.flat().filter( ( member ) => member.step === "drained" || ( over && member.step === "draining" ) );
   const button = ( text, onclick, kind ) => h( "button", { key: text, class: kind, onclick, disabled: !mayChange() }, text );
   return h( "p", { class: "buttons" },
      plan.state === "running" && button( "Pause", () => pauseIt( plan ), "stop" ),
      plan.state === "paused" && button( "Resume", () => resumeIt( plan ) ),
      !over && button( "Cancel", () => cancelIt( plan ) ),
      out.length > 0 && button( out.length === 1 ? `Order ${out[0].unit} back` : `Order the ${out.length} that are out back`,
                                () => orderBack( out.map( ( member ) => member.unit ), `Ordered back: ${plural( out.length, "unit" )}` ) ) );
}

// What its box says of it; nothing where it is of no account any more.
function liveWhy( member ) {
   if( member.step === "done" || member.step === "waiting" ) return "";
   const [ name, unitName ] = splitUnit( member.unit );
   const box = fleet.boxes.get( name );
   return box?.units.find( ( unit ) => unit.unit === unitName )?.why ?? "";
}

function memberRow( member ) {
   const [ box, unit ] = splitUnit( member.unit );
   return h( "tr", { key: member.unit, class: member.fault ? "alert" : null },
      h( "th", { scope: "row" }, boxLink( box ), h( "span", { class: "soft" }, ` ${unit}` ) ),
      h( "td", null, wordOf( memberState( member ) ) ),
      h( "td", null, member.step === "waiting" ? "–" : age( member.since ) ),
      h( "td", { class: "why" }, member.fault ? h( "b", null, member.fault ) : liveWhy( member ) || "–" ) );
}

function waveWord( plan, number, members ) {
   if( members.some( ( member ) => member.fault ) ) return { word: "stands still", tone: "bad" };
   if( plan.state === "finished" || number < plan.wave ) return { word: "done", tone: "good" };
   if( number > plan.wave ) return { word: plan.state === "cancelled" ? "never begun" : "to come", tone: "plain" };
   if( plan.state === "running" ) return { word: "under way", tone: "going", shape: "under" };
   return { word: plan.state, tone: "warn", shape: "paused" };
}

function waveView( plan, members, index, redraw ) {
   const number = index + 1;
   const key = `${plan.plan}/${number}`;
   const word = waveWord( plan, number, members );
   const open = unfolded.get( key ) ?? ( ( number === plan.wave && plan.state !== "finished" ) || word.tone === "bad" );
   const sorted = members.toSorted( ( a, b ) => memberState( a ).rank - memberState( b ).rank );
   const done = members.filter( ( member ) => member.step === "done" ).length;
   const toggled = ( event ) => {
      if( open === event.target.open ) return;
      unfolded.set( key, event.target.open );
      redraw();
   };
   return h( "details", { key, class: "group", open, ontoggle: toggled },
      h( "summary", { "data-row": true }, h( "span", { class: "name" }, `Wave ${number}` ), wordOf( word ),
         h( "span", { class: "soft" }, `${done} of ${plural( members.length, "unit" )} done` ) ),
      open && h( "table", { class: "list members" }, h( "caption", { class: "heard-only" }, `Wave ${number}` ),
         h( "thead", null, h( "tr", null, [ "Box and unit", "Step", "Since", "Why" ].map( ( text ) =>
            h( "th", { scope: "col" }, text ) ) ) ),
         h( "tbody", null, sorted.slice( 0, membersAtMost ).map( memberRow ) ) ),
      open && sorted.length > membersAtMost && h( "p", { class: "soft" }, `and ${sorted.length - membersAtMost} more` ) );
}

function requestView( request ) {
   const labels = Object.entries( request.labels ).map( ( [ label, text ] ) => `${label}: ${text}` );
   const which = [ ...request.boxes.slice( 0, 5 ), request.boxes.length > 5 && `and ${request.boxes.length - 5} boxes more`,
                   ...labels, request.unit && `unit ${request.unit}` ].filter( Boolean ).join( ", " ) || "every unit";
   const rows = [ [ "Which", which ], [ "Waves", request.waves ], [ "Soak between waves", span( request.soakSeconds ) ],
                  [ "Deadline", span( request.deadlineSeconds ) ],
                  [ "At the deadline", { hold: "it goes on draining", "give-back": "it goes back to service" }[request.atDeadline] ?? request.atDeadline ],
                  [ "In maintenance", request.staySeconds === null ? "until it is ordered back" : `for ${span( request.staySeconds )}` ] ];
   return h( "section", { "aria-labelledby": "request" }, h( "h2", { id: "request" }, "What was asked for" ),
      h( "table", { class: "list request" }, h( "tbody", null, rows.map( ( [ what, text ] ) =>
         h( "tr", { key: what }, h( "th", { scope: "row" }, what ), h( "td", null, text ) ) ) ) ) );
}

function header( plan ) {
   const state = planState( plan.state );
   const where = plan.state === "running" || plan.state === "paused" ? ` in wave ${plan.wave} of ${plan.waves}` : "";
   const tone = !fleet.live ? "bad" : plan.state === "paused" ? "warn" : state.tone;
   const said = plan.state === "running" ? plan.waitsFor : [ plan.why ].filter( Boolean );
   return h( "header", { class: tone },
      h( "p", { class: "over" }, `Plan, by ${plan.by}, `, age( plan.made ) ),
      h( "h1", { tabindex: -1 }, shape( fleet.live ? state.shape ?? state.tone : "unknown", tone ),
         h( "span", null, fleet.live ? `${plan.plan} is ${state.word}${where}` : `${plan.plan}: unknown, it was ${state.word}` ) ),
      h( "ul", { class: "first" },
         said.slice( 0, 6 ).map( ( text ) => h( "li", { key: text }, shape( plan.state === "paused" ? "warn" : "plain" ), h( "span", null, text ) ) ),
         said.length > 6 && h( "li", { key: "more" }, `and ${said.length - 6} more` ),
         h( "li", { key: "done" }, shape( "plain" ), h( "span", null, `${plan.done} of ${plural( plan.units, "unit" )} done` ) ) ),
      brake( plan ) );
}

export function planView( id, detail, redraw ) {
   const plan = detail.data;
   if( !plan ) {
      const text = detail.fault ? `${id}: ${detail.fault}` : `${id}: not known yet`;
      return [ h( "header", { class: detail.fault ? "bad" : "plain" }, h( "h1", { tabindex: -1 }, shape( "unknown" ), h( "span", null, text ) ) ) ];
   }
   return [ header( plan ), detail.fault && h( "p", { class: "refused" }, `Could not be read again: ${detail.fault}` ),
            h( "section", { "aria-labelledby": "waves" }, h( "h2", { id: "waves" }, "Waves" ),
               h( "div", { class: "groups" }, plan.members.map( ( members, i ) => waveView( plan, members, i, redraw ) ) ) ),
            requestView( plan.request ) ];
}
