// One box: its units, what was ordered, and the interfaces that stand in the way, as they are now.
import { h } from "./dom.js";
import { mayChange, orderBack } from "./actions.js";
import { fleet } from "./fleet.js";
import { age, planLink, plural, rate, shape, standing, standings, verdict, wordOf } from "./words.js";

const outcomes = {
   none: "not begun", begun: "begun", carried: "agreed to by maintd", expired: "came too late, and nothing was done",
   refused: "refused by maintd, and nothing was done", "gave back": "given up at its deadline, and given back",
   undone: "ended by somebody else",
};
const wants = { service: "to service", maintenance: "to maintenance", nothing: "to stay as it is" };

function orderView( order ) {
   if( !order ) return h( "p", { class: "soft" }, "The fleet has never ordered anything of it." );
   const outcome = order.acknowledged < order.number ? "the box has not seen it"
                 : order.acknowledged > order.number ? "the box has seen a newer one than the owner has"
                 : outcomes[order.outcome] ?? order.outcome;
   return h( "p", null, `Order ${order.number}, ${wants[order.want] ?? order.want}`, order.plan ? [ ", of ", planLink( order.plan ) ] : "",
             ", given ", age( order.issued ), ": ", h( "b", null, outcome ), order.open ? "." : "; it is over." );
}

const interfaceRow = ( one ) => h( "tr", { key: one.interface, class: one.verdict === "loud" ? "alert" : null },
   h( "th", { scope: "row" }, one.interface ), h( "td", null, wordOf( verdict( one.verdict ) ) ),
   h( "td", { class: "num" }, rate( one.bitsRate ) ), h( "td", { class: "why" }, one.why || "–" ) );

function interfacesView( unit, known ) {
   // None of none would read as if nothing were in the way.
   if( !known || unit.interfaces === 0 ) return h( "p", { class: "soft" }, "Nothing is known of its interfaces now." );
   if( unit.state === "active" ) return h( "p", { class: "soft" }, `${plural( unit.interfaces, "interface" )}, in service.` );
   const standing = unit.interfaces - unit.settled;
   return [
      h( "p", null, h( "b", null, `${unit.settled} of ${plural( unit.interfaces, "interface" )}` ), " settled",
         standing > 0 ? `; ${standing} still in the way:` : "; none is in the way." ),
      unit.unsettled.length > 0 && h( "table", { class: "list" },
         h( "caption", { class: "heard-only" }, `Interfaces of ${unit.unit} that are in the way, the loudest first` ),
         h( "thead", null, h( "tr", null, [ "Interface", "Verdict", "Rate", "Lacks" ].map( ( text ) =>
            h( "th", { scope: "col", class: text === "Rate" ? "num" : null }, text ) ) ) ),
         h( "tbody", null, unit.unsettled.map( interfaceRow ) ) ),
      standing > unit.unsettled.length && unit.unsettled.length > 0 &&
         h( "p", { class: "soft" }, `and ${standing - unit.unsettled.length} more` ) ];
}

function unitView( box, unit ) {
   const stands = standing( box, unit, box.silent );
   const known = !box.silent && !box.trouble;
   const name = `${box.box}/${unit.unit}`;
   return h( "section", { key: unit.unit, "aria-label": `Unit ${unit.unit}` },
      h( "h2", null, unit.unit, " ", wordOf( stands ) ),
      unit.why && h( "p", null, unit.why ),
      !known && unit.state !== "unknown" && h( "p", { class: "soft" }, `What it said last: ${unit.state}.` ),
      orderView( unit.order ), interfacesView( unit, known ),
      unit.out && h( "p", null, h( "button", { onclick: () => orderBack( [ name ] ), disabled: !mayChange() }, "Order back" ) ) );
}

function header( box ) {
   const states = box.units.map( ( unit ) => standing( box, unit, box.silent ) );
   const worst = states.toSorted( ( a, b ) => a.rank - b.rank )[0] ?? standings.unknown;
   const tone = fleet.live ? { stay: "plain" }[worst.tone] ?? worst.tone : "bad";
   return h( "header", { class: tone },
      h( "p", { class: "over" }, "Box" ),
      h( "h1", { tabindex: -1 }, shape( fleet.live ? worst.shape ?? worst.tone : "unknown", tone ),
         h( "span", null, `${box.box}: ${fleet.live ? worst.word : "unknown"}` ) ),
      h( "ul", { class: "first" },
         box.trouble && h( "li", null, shape( "bad" ), h( "span", null, box.trouble ) ),
         h( "li", null, shape( "plain" ), h( "span", null, box.heard === null ? "never heard in this life of the owner" : "heard ",
                                             box.heard !== null && age( box.heard ) ) ),
         h( "li", null, shape( "plain" ), h( "span", null,
            Object.entries( box.labels ).map( ( [ label, text ] ) => `${label}: ${text}` ).join( ", " ) || "no labels" ) ) ) );
}

export function boxView( name, detail ) {
   const box = detail.data;
   if( !box ) {
      const text = detail.fault ? `${name}: ${detail.fault}` : `${name}: not known yet`;
      return [ h( "header", { class: detail.fault ? "bad" : "plain" }, h( "h1", { tabindex: -1 }, shape( "unknown" ), h( "span", null, text ) ) ) ];
   }
   box.silent = box.heard === null || fleet.now() - box.heard > 3 * fleet.told.heartbeatSeconds;
   return [ header( box ), detail.fault && h( "p", { class: "refused" }, `Could not be read again: ${detail.fault}` ),
            ...box.units.map( ( unit ) => unitView( box, unit ) ) ];
}
