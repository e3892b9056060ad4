// The fleet at a glance: what stands still and why, plans, brakes, units that are out, and boxes by group.
import { h } from "./dom.js";
import { change, mayChange } from "./actions.js";
import { fleet } from "./fleet.js";
import { boxRows, boxTable, filtered, groupsView, whyOf } from "./groups.js";
import { age, boxLink, planLink, planState, plural, shape, standings, wordOf } from "./words.js";

const fewUnits = 15;
const fewReasons = 4;

let filter = "";
export function filterIs( text ) { filter = text; }

const brakeName = ( site ) => site ? `the brake of site ${site}` : "the brake of all sites";
const capital = ( text ) => text.charAt( 0 ).toUpperCase() + text.slice( 1 );

function listed( items, separator = ", " ) {
   const few = items.slice( 0, 3 ).flatMap( ( item, i ) => i ? [ separator, item ] : [ item ] );
   return items.length > 3 ? [ ...few, ` and ${plural( items.length - 3, "other" )}` ] : few;
}

function planFindings( told ) {
   const paused = told.plans.filter( ( plan ) => plan.state === "paused" );
   const running = told.plans.filter( ( plan ) => plan.state === "running" );
   return [
      ...paused.map( ( plan ) => ( { tone: "warn", rank: 2, shape: "paused",
         head: paused.length === 1 ? `${plan.plan} stands still` : `${paused.length} plans stand still`,
         text: [ planLink( plan.plan ), ` is paused in wave ${plan.wave} of ${plan.waves}: ${plan.why}` ] } ) ),
      ...running.map( ( plan ) => ( { tone: "plain", rank: 7, shape: "under",
         head: running.length === 1 ? `${plan.plan} is in wave ${plan.wave} of ${plan.waves}`
                                    : `${running.length} plans are under way`,
         text: [ planLink( plan.plan ), ` is in wave ${plan.wave} of ${plan.waves}`,
                 plan.waitsFor.length ? `: ${plan.waitsFor[0]}` : "",
                 plan.waitsFor.length > 1 ? `, and ${plural( plan.waitsFor.length - 1, "other" )}` : "" ] } ) ) ];
}

function boxFindings( out ) {
   const of = ( ...which ) => out.filter( ( one ) => which.includes( one.stands ) );
   const boxesIn = ( found ) => [ ...new Set( found.map( ( one ) => one.box.box ) ) ];
   const found = [ [ of( standings.failed ), "has failed", "have failed", 3 ],
                   [ of( standings.disturbed ), "is in maintenance, and has traffic again", "are in maintenance, and have traffic again", 3 ],
                   [ of( standings.silent, standings.neverHeard ), "is silent", "are silent", 4 ],
                   [ of( standings.unknown ), "is in no known state", "are in no known state", 4 ] ];
   return found.filter( ( [ units ] ) => units.length ).map( ( [ units, one, many, rank ] ) => {
      const boxes = boxesIn( units );
      const head = boxes.length === 1 ? `${boxes[0]} ${one}` : `${plural( boxes.length, "box", "boxes" )} ${many}`;
      // The sentence of one has its why, as there is room for it.
      const why = boxes.length === 1 && whyOf( units[0].box, units[0].unit ).replace( /^failed: /, "" );
      return { tone: "bad", rank, head, shape: units[0].stands.shape,
               text: [ ...listed( boxes.map( boxLink ) ), ` ${boxes.length === 1 ? one : many}`, why ? `: ${why}` : "" ] };
   } );
}

// What there is to say, the most urgent first: { tone, rank, shape, head, text }.
function findings( told, out ) {
   const found = [];
   if( told.doubt ) {
      found.push( { tone: "bad", rank: 0, head: "The fleet's owner is in doubt", text: [ capital( told.doubt ),
         told.doubt.includes( "older than the fleet" ) &&
            [ ". Nothing is ordered until somebody has looked and says so. ",
              h( "button", { onclick: () => accept( told ), disabled: !mayChange() }, "Accept these books" ) ] ].flat().filter( Boolean ) } );
   }
   if( !told.reachable ) {
      found.push( { tone: "bad", rank: 1, head: "The boxes cannot be reached", shape: "unknown",
                    text: [ `Nothing is granted; the broker: ${told.broker || "no reason is known"}` ] } );
   } else if( told.broker ) {
      found.push( { tone: "warn", rank: 6, head: "The broker refuses something", text: [ capital( told.broker ) ] } );
   }
   for( const brake of told.brakes ) {
      found.push( { tone: "warn", rank: 5, shape: "paused", head: `${capital( brakeName( brake.site ) )} is on`,
                    text: [ `${capital( brakeName( brake.site ) )} is on, by ${brake.by}, for `, age( brake.since, "for" ) ] } );
   }
   return [ ...found, ...planFindings( told ), ...boxFindings( out ) ].sort( ( a, b ) => a.rank - b.rank );
}

function headOf( told, found ) {
   if( !fleet.live ) return { tone: "bad", shape: "unknown", head: "Unknown: no connection to the fleet's owner" };
   const worst = [ "bad", "warn", "plain" ].find( ( tone ) => found.some( ( one ) => one.tone === tone ) );
   if( found.length ) return { ...found[0], tone: worst, shape: found[0].shape ?? found[0].tone };
   if( told.counts.units === 0 ) return { tone: "plain", head: "The inventory is empty" };
   const { out } = told.counts;
   if( out ) return { tone: "plain", head: `${plural( out, "unit is", "units are" )} out, and no plan is under way` };
   return { tone: "good", head: `All ${plural( told.counts.units, "unit is", "units are" )} in service` };
}

// For the title, on every page, and for who cannot see it.
export const headline = () => fleet.told ? headOf( fleet.told, findings( fleet.told, fleet.out() ) ).head : "Not known yet";

function header( told, found ) {
   const head = headOf( told, found );
   const few = found.slice( 0, 8 );
   return h( "header", { class: head.tone },
      h( "p", { class: "over" }, `Fleet of ${plural( told.counts.boxes, "box", "boxes" )}` ),
      h( "h1", { tabindex: -1 }, shape( head.shape ?? head.tone ), h( "span", null, head.head ) ),
      !fleet.live && few.length > 0 && h( "p", null, "When the owner was last heard:" ),
      h( "ul", { class: "first" }, few.map( ( one ) =>
         h( "li", null, shape( one.shape ?? one.tone, one.tone ), h( "span", null, one.text ) ) ),
         found.length > few.length && h( "li", null, `and ${found.length - few.length} more` ) ) );
}

const tile = ( what, value, more, tone ) =>
   h( "li", { class: tone }, h( "span", null, what ), h( "strong", null, value.toLocaleString( "en" ) ), h( "span", null, more ) );

function tiles( told, out ) {
   const { boxes, units, inService, silent } = told.counts;
   const failing = out.filter( ( one ) => one.stands === standings.failed || one.stands === standings.disturbed ).length;
   return h( "ul", { class: "tiles" },
      tile( "In service", inService, `of ${plural( units, "unit" )}`, "" ),
      tile( "Out of service", told.counts.out, "units, those of silent boxes too", "" ),
      tile( "Failing", failing, "units failed, or with traffic back", failing ? "bad" : "" ),
      tile( "Silent", silent, `of ${plural( boxes, "box", "boxes" )}, state unknown`, silent ? "bad" : "" ) );
}

// A wave each, as far as there is room for them.
function waveBar( plan ) {
   if( plan.waves > 16 ) return null;
   const over = plan.state === "finished";
   return h( "span", { class: "wavebar", "aria-hidden": "true" }, Array.from( { length: plan.waves }, ( _, i ) =>
      h( "i", { class: over || i + 1 < plan.wave ? "done" : i + 1 === plan.wave ? `now ${plan.state}` : "" } ) ) );
}

const waits = ( plan ) => plan.waitsFor.length === 0 ? "–" : h( "ul", { class: "waits" },
   plan.waitsFor.slice( 0, fewReasons ).map( ( text ) => h( "li", null, text ) ),
   plan.waitsFor.length > fewReasons &&
      h( "li", { class: "soft" }, `and ${plural( plan.waitsFor.length - fewReasons, "other" )}` ) );

const planRow = ( plan ) => h( "tr", { key: plan.plan },
   h( "th", { scope: "row" }, planLink( plan.plan ), h( "small", null, `by ${plan.by}, `, age( plan.made ) ) ),
   h( "td", null, wordOf( planState( plan.state ) ) ),
   h( "td", { "data-label": "Wave" }, `${plan.state === "finished" ? plan.waves : plan.wave} of ${plan.waves}`, waveBar( plan ) ),
   h( "td", { class: "num", "data-label": "Units done" }, `${plan.done} of ${plan.units}` ),
   h( "td", { class: "why" }, plan.state === "running" || plan.state === "paused" ? waits( plan ) : plan.why || "–" ) );

const planTable = ( caption, plans ) => h( "table", { class: "list plans" },
   h( "caption", { class: "heard-only" }, caption ),
   h( "thead", null, h( "tr", null, [ "Plan", "State", "Wave", "Units done", "Waits for" ].map( ( text ) =>
      h( "th", { scope: "col", class: text === "Units done" ? "num" : null }, text ) ) ) ),
   h( "tbody", null, plans.map( planRow ) ) );

function plansSection( told ) {
   const over = told.plans.filter( ( plan ) => planState( plan.state ).rank === 2 );
   const going = told.plans.filter( ( plan ) => !over.includes( plan ) )
      .sort( ( a, b ) => planState( a.state ).rank - planState( b.state ).rank );
   return h( "section", { "aria-labelledby": "plans", key: "plans" }, h( "h2", { id: "plans" }, "Plans" ),
      going.length ? planTable( "Plans under way", going ) : h( "p", { class: "soft" }, "No plan is under way." ),
      over.length > 0 && h( "details", null, h( "summary", { "data-row": true }, over.length === 1 ? "1 plan that is over" : `${over.length} plans that are over` ),
                            planTable( "Plans that are over", over ) ) );
}

function accept( told ) {
   const silent = told.counts.silent;
   const underWay = told.plans.filter( ( plan ) => plan.state === "running" || plan.state === "paused" ).map( ( plan ) => plan.plan );
   change( { title: "Go on with books that are older than the fleet?", verb: "Accept these books", path: "/v1/accept", query: [],
             text: "What was ordered since they were kept is withdrawn: those units stay as they are, and count as out until they are "
                + "seen in service. Plans and brakes of that time are gone: put on first what is to hold. "
                + ( silent ? `${plural( silent, "box is", "boxes are" )} silent, and may know of more: wait for those that will be heard. ` : "" )
                + ( underWay.length ? `Under way as it was then: ${underWay.join( ", " )}. Cancel first what is not to go on from there.` : "" ),
             done: "The books are accepted" } );
}

function putBrake() {
   const site = document.getElementById( "site" ).value;
   change( { title: `Put on ${brakeName( site )}?`, verb: "Put the brake on", path: "/v1/brake",
             query: site ? [ [ "site", site ] ] : [], done: `${capital( brakeName( site ) )} is on`,
             text: "It pauses every plan that has a unit there. What is out stays out, and drains that have begun go on." } );
}

const release = ( site ) => change( { title: `Release ${brakeName( site )}?`, verb: "Release", kind: "go", path: "/v1/release",
   query: site ? [ [ "site", site ] ] : [], done: `${capital( brakeName( site ) )} is released`,
   text: "No plan goes on by itself: each is to be resumed." } );

function brakesSection( told ) {
   return h( "section", { "aria-labelledby": "brakes", key: "brakes" }, h( "h2", { id: "brakes" }, "Brake" ),
      told.brakes.map( ( brake ) => h( "p", { key: brake.site, class: "brake" },
         wordOf( { word: capital( brakeName( brake.site ) ) + " is on", tone: "warn", shape: "paused" } ),
         ` by ${brake.by}, `, age( brake.since ), " ",
         h( "button", { onclick: () => release( brake.site ), disabled: !mayChange() }, "Release" ) ) ),
      h( "p", { class: "brake" }, h( "label", { for: "site" }, "Stop the plans of " ),
         h( "select", { id: "site" }, h( "option", { value: "" }, "all sites" ),
            fleet.sites().map( ( site ) => h( "option", { key: site, value: site }, `site ${site}` ) ) ), " ",
         h( "button", { id: "brake", class: "stop", onclick: putBrake, disabled: !mayChange() }, "Brake" ) ) );
}

// The plan that stands still for a unit: the sentence why it does begins with the unit's name.
const stopped = ( name ) => fleet.told.plans.find( ( plan ) => plan.state === "paused" && plan.why.startsWith( `${name} ` ) );

function outRow( { box, unit, stands, plan } ) {
   const alert = plan || stands.tone === "bad";
   return h( "tr", { key: `${box.box}/${unit.unit}`, class: alert ? "alert" : null },
      h( "th", { scope: "row" }, boxLink( box.box ), h( "span", { class: "soft" }, ` ${unit.unit}` ) ),
      h( "td", null, wordOf( alert ? { ...stands, tone: "bad" } : stands ) ),
      h( "td", { class: "why" }, whyOf( box, unit ) || "–", plan && h( "small", null, planLink( plan.plan ), " stands still for it" ) ) );
}

function outSection( all ) {
   if( !all.length ) return null;
   const out = all.map( ( one ) => ( { ...one, plan: stopped( `${one.box.box}/${one.unit.unit}` ) } ) )
      .sort( ( a, b ) => ( a.plan ? 0 : 1 ) - ( b.plan ? 0 : 1 ) );
   return h( "section", { "aria-labelledby": "out", key: "out" }, h( "h2", { id: "out" }, "Out of service" ),
      boxTable( "Units out of service, the worst first", out.slice( 0, fewUnits ).map( outRow ) ),
      out.length > fewUnits && h( "p", { class: "soft" }, `and ${plural( out.length - fewUnits, "unit" )} more, in the groups below` ) );
}

function filterSection() {
   const found = filtered( filter );
   const most = 200;
   return h( "section", { "aria-labelledby": "found", key: "found" },
      h( "h2", { id: "found" }, `${plural( found.length, "box", "boxes" )} with “${filter}”` ),
      found.length > 0 && boxTable( "Boxes found", found.slice( 0, most ).flatMap( boxRows ) ),
      found.length > most && h( "p", { class: "soft" }, `and ${plural( found.length - most, "box", "boxes" )} more` ) );
}

export function overview( redraw ) {
   const told = fleet.told;
   const out = fleet.out();
   if( filter ) return [ filterSection() ];
   return [ header( told, findings( told, out ) ), tiles( told, out ),
            h( "div", { class: "pair", key: "pair" }, plansSection( told ), brakesSection( told ) ), outSection( out ),
            h( "section", { "aria-labelledby": "groups", key: "groups" }, h( "h2", { id: "groups" }, "Boxes" ),
               groupsView( redraw ) ) ];
}
