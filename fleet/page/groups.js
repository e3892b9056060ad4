// Boxes that share the value of a label, counted: unfolded they are many, so each is described anew only when it has
// changed.
import { h } from "./dom.js";
import { byName, fleet } from "./fleet.js";
import { boxLink, plural, shape, standings, wordOf } from "./words.js";

const fewBoxes = 40;     // are all shown at once
const rowsAtFirst = 200;

let labels = [];
let label = "";
let grouped = -1;         // the version of the boxes that the groups are of
let groups = [];
const wholeOnes = new Set();   // groups of which somebody wants all rows
const chosen = new Map();      // key -> unfolded or not, where somebody has said so
const rowsOf = new WeakMap();  // box -> its rows

// Those that budgets are for come first, and of them the ones with the fewest groups.
function labelsOfBoxes() {
   const counts = new Map();
   for( const box of fleet.boxes.values() ) {
      for( const [ name, value ] of Object.entries( box.labels ) ) {
         if( !counts.has( name ) ) counts.set( name, new Set() );
         counts.get( name ).add( value );
      }
   }
   const budgeted = new Set( fleet.told.groups.map( ( group ) => group.group.slice( 0, group.group.indexOf( ":" ) ) ) );
   const order = ( [ name, values ] ) => ( budgeted.has( name ) ? 0 : 1e9 ) + values.size;
   return [ ...counts ].sort( ( a, b ) => order( a ) - order( b ) ).map( ( [ name ] ) => name );
}

function labelIs( name ) {
   label = name;
   grouped = -1;
}

// One <tr> for each unit.
export function boxRows( box ) {
   let rows = rowsOf.get( box );
   if( !rows ) {
      rows = box.units.map( ( unit, i ) => h( "tr", { key: `${box.box}/${unit.unit}` },
         h( "th", { scope: "row" }, boxLink( box.box ), h( "span", { class: "soft" }, ` ${unit.unit}` ) ),
         h( "td", null, wordOf( box.stands[i] ) ),
         h( "td", { class: "why" }, whyOf( box, unit ) ) ) );
      rowsOf.set( box, rows );
   }
   return rows;
}

export function whyOf( box, unit ) {
   if( box.trouble && !unit.why.includes( box.trouble ) ) return [ unit.why, box.trouble ].filter( Boolean ).join( ": " );
   return unit.why;
}

export const boxTable = ( caption, rows ) => h( "table", { class: "list boxes" },
   h( "caption", { class: "heard-only" }, caption ),
   h( "thead", null, h( "tr", null, h( "th", { scope: "col" }, "Box and unit" ), h( "th", { scope: "col" }, "State" ),
                        h( "th", { scope: "col" }, "Why" ) ) ),
   h( "tbody", null, rows ) );

function regroup() {
   labels = labelsOfBoxes();
   if( !labels.includes( label ) ) label = labels[0] ?? "";
   const byValue = new Map();
   for( const box of fleet.boxes.values() ) {
      const value = box.labels[label];
      const key = value === undefined ? "" : `${label}: ${value}`;
      if( !byValue.has( key ) ) byValue.set( key, { key, boxes: [], tally: new Map(), units: 0, worst: 9 } );
      const group = byValue.get( key );
      group.boxes.push( box );
      group.units += box.units.length;
      group.worst = Math.min( group.worst, box.rank );
      for( const stands of box.stands ) group.tally.set( stands, ( group.tally.get( stands ) ?? 0 ) + 1 );
   }
   groups = [ ...byValue.values() ];
   for( const group of groups ) {
      group.out = group.units - ( group.tally.get( standings.service ) ?? 0 );
      group.counts = [ ...group.tally ].sort( ( a, b ) => a[0].rank - b[0].rank );
   }
}

const counted = ( group ) => h( "ul", { class: "counts" }, group.counts.map( ( [ stands, count ] ) =>
   h( "li", null, shape( stands.shape ?? stands.tone, stands.tone ), h( "b", null, count.toLocaleString( "en" ) ),
      ` ${stands.word}` ) ) );

// How much of its budget is used; nothing where the label has none.
function room( budget ) {
   if( !budget ) return null;
   const out = budget.out.length;
   const [ tone, more ] = out > budget.mayBeOut ? [ "bad", ", more than allowed" ]
                        : out > 0 && out === budget.mayBeOut ? [ "warn", ", full" ] : [ "plain", "" ];
   return h( "span", { class: `room ${tone}` },
      h( "svg", { class: "meter", viewBox: "0 0 100 8", preserveAspectRatio: "none", "aria-hidden": "true" },
         h( "rect", { class: "all", width: 100, height: 8 } ),
         h( "rect", { class: "used", width: Math.min( 100, 100 * out / Math.max( budget.mayBeOut, 1 ) ), height: 8 } ) ),
      `${out.toLocaleString( "en" )} of ${budget.mayBeOut.toLocaleString( "en" )} that may be out${more}` );
}

function body( group, redraw ) {
   const sorted = group.boxes.toSorted( ( a, b ) => a.rank - b.rank || byName( a, b ) );
   const cut = !wholeOnes.has( group.key ) && sorted.length > rowsAtFirst + 50;
   const rows = ( cut ? sorted.slice( 0, rowsAtFirst ) : sorted ).flatMap( boxRows );
   const more = cut && h( "button", { onclick: () => { wholeOnes.add( group.key ); redraw(); } },
                          `Show all ${plural( sorted.length, "box", "boxes" )}` );
   return [ boxTable( `Boxes of ${group.key || "no group"}`, rows ), more ];
}

function groupView( group, budget, redraw ) {
   const open = chosen.get( group.key ) ?? fleet.boxes.size <= fewBoxes;
   const toggled = ( event ) => {
      if( chosen.get( group.key ) === event.target.open || open === event.target.open ) return;
      chosen.set( group.key, event.target.open );
      redraw();
   };
   return h( "details", { key: `group ${group.key}`, class: "group", open, ontoggle: toggled },
      h( "summary", { "data-row": true },
         h( "span", { class: "name" }, group.key || "without that label" ),
         h( "span", { class: "soft" }, plural( group.boxes.length, "box", "boxes" ) ),
         counted( group ), room( budget ) ),
      open ? body( group, redraw ) : null );
}

// What is worst comes first.
export function groupsView( redraw ) {
   if( grouped !== fleet.boxesVersion ) regroup();
   grouped = fleet.boxesVersion;
   const budgets = new Map( fleet.told.groups.map( ( group ) => [ group.group, group ] ) );
   const full = ( group ) => {
      const budget = budgets.get( group.key );
      return budget && budget.out.length > 0 && budget.out.length >= budget.mayBeOut ? 0 : 1;
   };
   const order = groups.toSorted( ( a, b ) => ( a.worst < 4 ? a.worst : 4 ) - ( b.worst < 4 ? b.worst : 4 ) ||
      full( a ) - full( b ) || Math.sign( b.out ) - Math.sign( a.out ) || a.key.localeCompare( b.key, "en", { numeric: true } ) );
   return [
      labels.length > 1 && h( "p", { class: "by" }, h( "label", { for: "by" }, "Group by " ),
         h( "select", { id: "by", onchange: ( event ) => { labelIs( event.target.value ); redraw(); } },
            labels.map( ( name ) => h( "option", { key: name, value: name, selected: name === label }, name ) ) ) ),
      h( "div", { class: "groups" }, order.map( ( group ) => groupView( group, budgets.get( group.key ), redraw ) ) ) ];
}

// Boxes that have all the words in their name, labels, states or reasons.
export function filtered( text ) {
   const words = text.toLowerCase().split( /\s+/ ).filter( Boolean );
   const matches = [ ...fleet.boxes.values() ].filter( ( box ) => {
      const all = [ box.box, ...Object.entries( box.labels ).map( ( [ name, value ] ) => `${name}:${value}` ), box.trouble,
                    ...box.units.flatMap( ( unit, i ) => [ unit.unit, unit.why, box.stands[i].word ] ) ].join( " " ).toLowerCase();
      return words.every( ( word ) => all.includes( word ) );
   } );
   return matches.sort( ( a, b ) => a.rank - b.rank || byName( a, b ) );
}
