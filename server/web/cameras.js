// The cameras of the server: how they stand, and links from one to another.
import {glance, number} from './server.js';

const at = id => document.getElementById(id);
let cameras = []; // as the server told last

const kQuiet = 3;      // s without a heartbeat, and so many of its intervals, until one is missed
const kQuietAtAll = 30; // s, where only one has come

// Whether a camera is connected, and has not been heard for so many seconds though it has heartbeats.
export function isQuiet({link, heartbeat_interval: interval}, age) {
  if (!link || age === null) return false;
  return age > (interval === null ? kQuietAtAll : kQuiet * Math.max(1, interval));
}

// Why there is none, where the server knows: its sentence begins with the target, which is told already.
export function troubleOf({target, trouble}) {
  return trouble?.text.startsWith(`${target}: `) ? trouble.text.slice(target.length + 2) : trouble?.text;
}

function stateOf(facts) {
  const {open, link, sequence, exposure} = facts;
  if (!link) return open ? 'link lost' : 'not there';
  if (isQuiet(facts, facts.heartbeat_age)) return 'no heartbeat';
  return sequence ? 'sequence' : exposure ? 'exposing' : 'idle';
}

export const isOneOfSeveral = () => cameras.length > 1;

function linkTo({id}) {
  const words = new URLSearchParams(location.search);
  words.set('camera', id);
  const link = document.createElement('a');
  link.href = `?${words}`;
  link.append(...['id', 'name', 'state'].map(part => {
    const text = document.createElement('span');
    text.className = part;
    return text;
  }));
  if (String(id) === number) link.setAttribute('aria-current', 'page');
  return link;
}

function show(link, facts, state) {
  const {id, name, target, address, serial} = facts;
  const texts = [id, name || target, state];
  texts.forEach((text, part) => { link.children[part].textContent = text; });
  link.lastChild.classList.toggle('bad', state !== 'not known' && (!facts.link || state === 'no heartbeat'));
  link.title = [target, address !== target && address, serial && `serial ${serial}`, troubleOf(facts)].filter(Boolean).join(', ');
}

// Links stay as long as the cameras do, with the focus that one may have.
function showAll(place, tell = stateOf) {
  const isSame = place.children.length === cameras.length &&
      cameras.every(({id}, i) => place.children[i].firstChild.textContent === String(id));
  if (!isSame) place.replaceChildren(...cameras.map(linkTo));
  cameras.forEach((facts, i) => show(place.children[i], facts, tell(facts)));
}

// What was asked for newly of one of them.
export function showOne(facts) {
  cameras = cameras.map(each => each.id === facts.id ? facts : each);
  showAll(at('cameras'));
}

// While the server says nothing.
export function showUnknown() {
  showAll(at('cameras'), () => 'not known');
}

// Asks for all. False: that of the page is none of them, which it says then, until it is.
export async function showCameras() {
  try {
    ({cameras} = await glance('/api/v1/cameras'));
  } catch {
    showUnknown();
    return true; // what is wrong is told for this page's camera
  }
  showAll(at('cameras'));
  const isThere = cameras.some(({id}) => String(id) === number);
  const wasThere = at('unknown').hidden;
  if (isThere && !wasThere) location.reload();
  at('cameras').hidden = !isOneOfSeveral() || !isThere;
  at('unknown').hidden = isThere;
  document.body.classList.toggle('unknown', !isThere);
  if (isThere) return true;
  at('no-camera').textContent = `no such camera: ${number}`;
  document.title = 'no such camera - vxcamd';
  showAll(at('offered'));
  return false;
}
