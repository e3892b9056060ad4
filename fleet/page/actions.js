// Changes: asked for in a dialog, by a person's key, and done by the owner or refused by it.
//
// The key is asked for once and is kept for as long as the tab is there, and nowhere else.
import { h, show } from "./dom.js";

const keyName = "maintfleet.key";
const patience = 20000;  // ms
const dialog = document.getElementById( "ask" );
const said = document.getElementById( "said" );

let refusal = "";         // the owner's words where it takes no changes at all
let asking = null;        // what the dialog is about; null while it is closed
let changed = () => {};   // somebody may change something now, or may not any more, or something was changed

export function changedIs( handler ) { changed = handler; }

const key = () => sessionStorage.getItem( keyName );
export const mayChange = () => refusal === "";

export function say( text ) {
   if( said.textContent !== text ) said.textContent = text;
}

function keyIs( text ) {
   if( text ) sessionStorage.setItem( keyName, text );
   else sessionStorage.removeItem( keyName );
   changed();
}

export function accessView() {
   if( refusal ) {
      return [ h( "b", null, "Read-only: " ), refusal, " ",
               h( "button", { class: "plain", onclick: () => { refusal = ""; changed(); } }, "Try again" ) ];
   }
   if( !key() ) return [ h( "b", null, "Read-only" ), ": no key is given yet, a change asks for it" ];
   return [ "Changes by your key ", h( "button", { class: "plain", onclick: () => keyIs( "" ) }, "Forget it" ) ];
}

// { ok }, or { error } with `why` where it is refused. What was not answered may have been done.
async function post( path, query ) {
   let answer;
   try {
      answer = await fetch( `${path}?${new URLSearchParams( query )}`, { method: "POST", cache: "no-store",
                            signal: AbortSignal.timeout( patience ), headers: { Authorization: `Bearer ${key()}` } } );
   } catch {
      return { error: "There was no answer: whether it was done shows on this page once there is a connection again." };
   }
   const body = await answer.json().catch( () => ( {} ) );
   if( answer.ok ) return { ok: true };
   const error = body.error ?? `The owner answers ${answer.status}.`;
   if( answer.status === 401 ) keyIs( "" );
   if( answer.status === 403 ) refusal = error;
   return { error, why: ( body.why ?? [] ).filter( ( text ) => text !== error ), over: answer.status === 403 };
}

function leave() {
   asking = null;
   dialog.close();
}

// Left by Esc.
dialog.addEventListener( "close", () => { if( !dialog.open ) asking = null; } );

function view( asked, state, submit ) {
   return h( "form", { onsubmit: submit },
      h( "h2", { id: "ask-title" }, asked.title ), h( "p", null, asked.text ),
      asked.choices?.length > 0 && h( "fieldset", null, h( "legend", null, asked.choose ), asked.choices.map( ( choice ) =>
         h( "label", { key: choice.value }, h( "input", { type: "checkbox", name: "choice", value: choice.value } ), ` ${choice.text}` ) ) ),
      !key() && h( "p", null, h( "label", { for: "key" }, "Your key" ),
         h( "input", { id: "key", type: "password", autocomplete: "off", required: true, autofocus: true } ),
         h( "small", { class: "soft" }, "Kept until this tab is closed." ) ),
      state.error && h( "p", { class: "refused", role: "alert" }, shapeOf(), state.error,
                        state.why?.length > 0 && h( "ul", null, state.why.map( ( text ) => h( "li", null, text ) ) ) ),
      h( "p", { class: "buttons" },
         h( "button", { type: "submit", class: asked.kind ?? "stop", disabled: state.busy }, asked.verb ),
         h( "button", { type: "button", onclick: leave }, "Leave it" ) ) );
}

const shapeOf = () => h( "svg", { class: "bad", viewBox: "0 0 12 12", "aria-hidden": "true" }, h( "use", { href: "#v-bad" } ) );

// asked: title, text, verb, kind (of its button: stop, or go), path, query [ [ name, value ] ], done (what is said
// afterwards); and where something is to be chosen, `choose`, `choices` [ { value, text } ] and `choice`, the parameter
// that the chosen ones are.
export function change( asked ) {
   const draw = ( state ) => show( dialog, view( asked, state, submit ) );
   async function submit( event ) {
      event.preventDefault();
      const given = dialog.querySelector( "#key" )?.value.trim();
      // It could not be sent, and that would look as if nobody had answered.
      if( given && !/^[\x21-\x7e]+$/.test( given ) ) return draw( { error: "No key has such a character in it." } );
      if( given ) keyIs( given );
      if( !key() ) return;
      const chosen = [ ...dialog.querySelectorAll( "[name=choice]:checked" ) ].map( ( box ) => [ asked.choice, box.value ] );
      draw( { busy: true } );
      const answer = await post( asked.path, [ ...asked.query, ...chosen ] );
      // Who has left it may be asking for something else by now.
      if( asking === asked ) {
         if( answer.ok || answer.over ) leave();
         else draw( answer );
      }
      say( answer.ok ? asked.done : answer.error );
      changed();
   }
   // Made anew: what was ticked or typed before was left, and is not meant here.
   show( dialog );
   asking = asked;
   draw( {} );
   if( !dialog.open ) dialog.showModal();
}

export const orderBack = ( units, done ) => change( {
   title: units.length === 1 ? `Order ${units[0]} back to service?` : `Order ${units.length} units back to service?`,
   text: "Whoever has sent it out. A plan that still drains it is paused: somebody has seen something that the plan has not.",
   verb: "Order back", kind: "go", path: "/v1/return", query: units.map( ( unit ) => [ "unit", unit ] ),
   done: done ?? `Ordered back: ${units.join( ", " )}` } );
