// The document as it should be, and the few changes that make it so.
//
// A view describes all that it shows; patch() touches what differs from the last description, so that focus, selection
// and scrolling stay as they are. A description that is the very object of before is passed over with all below it.
// Text gets in as text: nothing that comes from the network is ever read as markup.

const svgTags = new Set( [ "svg", "use", "rect" ] );
const shown = new WeakMap();  // node -> the description that it was made after

// `key` among the attributes tells children of one parent apart that come and go. Attributes that are null, undefined
// or false are not there; "on..." are handlers. Children that are null, undefined or false are none.
export function h( tag, attributes, ...children ) {
   const { key, ...rest } = attributes ?? {};
   const kept = children.flat( 2 ).filter( ( child ) => child !== null && child !== undefined && child !== false );
   return { tag, key, attributes: rest, children: kept.map( ( child ) => child.tag ? child : String( child ) ) };
}

// Writes the texts of <time data-at=...>, which change by themselves and are nobody else's.
let timeText = () => "";
export function timeTextIs( text ) { timeText = text; }
export function tellTimes( root ) {
   for( const node of root.querySelectorAll( "time[data-at]" ) ) tellTime( node );
}
function tellTime( node ) {
   const text = timeText( Number( node.dataset.at ), node.dataset.as );
   if( node.textContent !== text ) node.textContent = text;
}

function make( want ) {
   if( typeof want === "string" ) return document.createTextNode( want );
   const node = svgTags.has( want.tag ) ? document.createElementNS( "http://www.w3.org/2000/svg", want.tag )
                                        : document.createElement( want.tag );
   patch( node, want );
   return node;
}

function patchAttributes( node, was, want ) {
   for( const name of Object.keys( was ) ) {
      if( name in want ) continue;
      if( name.startsWith( "on" ) ) node[name] = null;
      else node.removeAttribute( name );
   }
   for( const [ name, value ] of Object.entries( want ) ) {
      if( was[name] === value ) continue;
      if( name.startsWith( "on" ) ) node[name] = value;
      else if( value === null || value === undefined || value === false ) node.removeAttribute( name );
      else node.setAttribute( name, value === true ? "" : value );
   }
}

function keysOf( children ) {
   const counts = {};
   return children.map( ( child ) => {
      if( child.key !== undefined ) return `key ${child.key}`;
      const tag = child.tag ?? "#text";
      counts[tag] = ( counts[tag] ?? 0 ) + 1;
      return `${tag} ${counts[tag]}`;
   } );
}

function patchChildren( node, was, want ) {
   const oldKeys = keysOf( was );
   const old = new Map( [ ...node.childNodes ].map( ( child, i ) => [ oldKeys[i], child ] ) );
   const nodes = keysOf( want ).map( ( key, i ) => {
      const child = old.get( key );
      if( !child || ( want[i].tag ?? "#text" ) !== child.nodeName.toLowerCase() ) return make( want[i] );
      old.delete( key );
      patch( child, want[i] );
      return child;
   } );
   // Before anything is moved: then what follows a child that goes stays where it is.
   for( const child of old.values() ) child.remove();
   let place = node.firstChild;
   for( const child of nodes ) {
      if( child === place ) place = place.nextSibling;
      else node.insertBefore( child, place );
   }
}

// `node` is of the description's tag, and nobody else changes what is in it.
export function patch( node, want ) {
   if( typeof want === "string" ) {
      if( node.data !== want ) node.data = want;
      return;
   }
   const was = shown.get( node );
   if( was === want ) return;
   shown.set( node, want );
   patchAttributes( node, was?.attributes ?? {}, want.attributes );
   if( "data-at" in want.attributes ) return tellTime( node );
   patchChildren( node, was?.children ?? [], want.children );
}

// Shows the children in `node`. One that is moved loses the focus, and gets it back.
export function show( node, ...children ) {
   const focused = document.activeElement;
   if( !shown.has( node ) ) node.replaceChildren();
   patch( node, h( node.tagName.toLowerCase(), {}, ...children ) );
   if( focused && focused !== document.activeElement && focused.isConnected ) focused.focus();
}
