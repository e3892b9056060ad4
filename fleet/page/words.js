// Numbers, spans and states as people read them. A state is always a word with a shape; its colour only repeats that.
import { h } from "./dom.js";

export const plural = ( count, one, many = one + "s" ) => `${count.toLocaleString( "en" )} ${count === 1 ? one : many}`;

export function span( seconds ) {
   if( !( seconds >= 120 ) ) return `${Math.max( 0, Math.floor( seconds ) )} s`;
   const units = [ [ "d", 86400 ], [ "h", 3600 ], [ "min", 60 ], [ "s", 1 ] ];
   const large = units.findIndex( ( [ , of ] ) => seconds >= of );
   const count = Math.floor( seconds / units[large][1] );
   const rest = Math.floor( ( seconds - count * units[large][1] ) / units[large + 1][1] );
   return `${count} ${units[large][0]}` + ( rest && units[large][0] !== "min" ? ` ${rest} ${units[large + 1][0]}` : "" );
}

export const clock = ( unixSeconds ) => new Date( unixSeconds * 1000 ).toISOString().slice( 11, 19 ) + " UTC";

export function rate( bitsPerSecond ) {
   if( bitsPerSecond === null || bitsPerSecond === undefined ) return "not known";
   const units = [ "bps", "kbps", "Mbps", "Gbps", "Tbps" ];
   let unit = 0;
   for( ; bitsPerSecond >= 999.5 && unit + 1 < units.length; ++unit ) bitsPerSecond /= 1000;
   const decimals = bitsPerSecond >= 99.95 ? 0 : bitsPerSecond >= 9.995 ? 1 : 2;
   return `${Number( bitsPerSecond.toFixed( decimals ) )} ${units[unit]}`;
}

// "40 s ago", and goes on by itself; `as` "in": how long until then.
export const age = ( unixSeconds, as = "ago" ) =>
   h( "time", { "data-at": unixSeconds, "data-as": as, datetime: new Date( unixSeconds * 1000 ).toISOString(),
                title: clock( unixSeconds ) } );

export const shape = ( name, tone ) =>
   h( "svg", { class: tone ?? name, viewBox: "0 0 12 12", "aria-hidden": "true" }, h( "use", { href: `#v-${name}` } ) );

// { word, tone: good, stay, going, plain, warn or bad, shape } as an element.
export const wordOf = ( state ) =>
   h( "span", { class: `word ${state.tone}` }, shape( state.shape ?? state.tone, state.tone ), h( "span", null, state.word ) );

const of = ( word, rank, tone, shape ) => ( { word, rank, tone, shape } );

// How a unit stands, by what its owner says of it. The rank says what is looked at first.
export const standings = {
   failed: of( "failed", 0, "bad" ),
   disturbed: of( "traffic is back", 1, "bad" ),
   silent: of( "silent", 2, "bad", "unknown" ),
   neverHeard: of( "never heard", 2, "bad", "unknown" ),
   unknown: of( "unknown", 3, "bad", "unknown" ),
   draining: of( "draining", 4, "going", "under" ),
   ordered: of( "ordered", 5, "going", "under" ),
   returning: of( "returning", 5, "going", "under" ),
   notProven: of( "in maintenance, not proven", 4, "warn" ),
   maintenance: of( "in maintenance", 6, "stay" ),
   service: of( "in service", 9, "good" ),
};

// Only what is said to be in service, by a box that is heard, is shown so; what is not understood is unknown.
export function standing( box, unit, silent ) {
   if( unit.out !== false ) {
      if( box.heard === null ) return standings.neverHeard;
      if( silent ) return standings.silent;
      if( box.trouble ) return standings.unknown;
   }
   switch( unit.state ) {
      case "active": return unit.out === false ? standings.service : standings.ordered;
      case "entering": return standings.draining;
      case "leaving": return standings.returning;
      case "failed": return standings.failed;
      case "inMaintenance":
         if( unit.disturbed ) return standings.disturbed;
         return unit.ready ? standings.maintenance : standings.notProven;
   }
   return standings.unknown;
}

const verdicts = {
   loud: of( "loud", 0, "bad" ),
   missing: of( "missing", 1, "bad" ),
   unwatched: of( "unwatched", 2, "warn" ),
   waiting: of( "waiting", 3, "warn" ),
   quiet: of( "quiet, not for long enough", 4, "plain", "under" ),
   down: of( "down, not for long enough", 4, "plain", "under" ),
   gone: of( "gone, not for long enough", 4, "plain", "under" ),
};
export const verdict = ( word ) => verdicts[word] ?? of( word, 9, "warn", "unknown" );

const plans = {
   running: of( "running", 1, "going", "under" ),
   paused: of( "paused", 0, "warn", "paused" ),
   finished: of( "finished", 2, "good" ),
   cancelled: of( "cancelled", 2, "plain" ),
};
export const planState = ( word ) => plans[word] ?? of( word, 0, "warn", "unknown" );

const steps = {
   waiting: of( "waiting", 3, "plain", "under" ),
   draining: of( "draining", 1, "going", "under" ),
   drained: of( "drained", 2, "stay" ),
   returning: of( "returning", 1, "going", "under" ),
   done: of( "done", 4, "good" ),
};
export function memberState( member ) {
   if( member.leftOut ) return of( "left out", 3, "warn" );
   const step = steps[member.step] ?? of( member.step, 1, "warn", "unknown" );
   return member.fault ? of( step.word, 0, "bad" ) : step;
}

export const boxLink = ( name ) => h( "a", { href: `#/box/${encodeURIComponent( name )}`, "data-row": true }, name );
export const planLink = ( id ) => h( "a", { href: `#/plan/${encodeURIComponent( id )}`, "data-row": true }, id );
