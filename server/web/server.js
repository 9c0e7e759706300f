// What the server offers: requests, the lease, and frames as they come.

export const number = new URLSearchParams(location.search).get('camera') || '0';
export const cameraPath = `/api/v1/cameras/${encodeURIComponent(number)}`;
const kLease = `lease of ${number}`; // where its key is kept
let leaseKey = sessionStorage.getItem(kLease) ?? '';

// By which the server's lease tells this page from others.
const kHolder = 'holder';
const holder = sessionStorage.getItem(kHolder) ?? `page ${Math.random().toString(36).slice(2, 6)}`;
sessionStorage.setItem(kHolder, holder);

export const hasLease = () => leaseKey !== '';

function keep(key) {
  leaseKey = key;
  sessionStorage.setItem(kLease, key);
}

// ---- Whether it is there

const kBeat = 0.25;      // s: so often it says so, where it says nothing else
const kGivenUp = 10000;  // ms of silence until another connection is tried
const kPatience = 5000;  // ms for what is asked again and again

let heardAt = performance.now();
// The facts of a frame have come and its pixels are under way, behind which all else waits.
let isFrameComing = false;

const hear = () => { heardAt = performance.now(); };
export const silence = () => performance.now() - heardAt; // ms without a word
export const isFrameLate = () => isFrameComing && silence() > 400;

// ---- Requests

// Throws an Error with the server's sentence, and what else it told: `kind` is its word for it.
export async function ask(method, path, body, signal) {
  const headers = leaseKey ? {'X-Lease': leaseKey} : {};
  const isFile = body instanceof Blob;
  if (body !== undefined && !isFile) headers['Content-Type'] = 'application/json';
  const answer = await fetch(path, {method, headers, body: isFile ? body : body && JSON.stringify(body), signal});
  if (isFrameComing) hear();
  const json = await answer.json();
  if (answer.ok) return json;
  if (answer.status === 423) keep('');
  const told = {...json.error, ...(json.error.kind === 'token' && {text: 'the token is needed'})}; // how, is for programs
  throw Object.assign(new Error(told.text), told);
}

export const camera = (method, path = '', body) => ask(method, cameraPath + path, body);

// What is known at once: a server that hangs is not waited for. Throws a TimeoutError then.
export const glance = path => ask('GET', path, undefined, AbortSignal.timeout(kPatience));

// The camera's facts. A lease that somebody else has by now, or nobody, is no longer this page's.
export async function cameraNow() {
  const before = leaseKey;
  const facts = await glance(cameraPath);
  const {held, holder: has} = facts.lease;
  if (before === leaseKey && hasLease() && !(held && has === holder)) keep('');
  return facts;
}

export async function takeLease() {
  keep((await camera('POST', '/lease', {holder, take: true})).key);
}

export async function giveLease() {
  await camera('DELETE', '/lease').catch(() => {});
  keep('');
}

// ---- Frames

let live = null; // the newest connection

// Which part of each frame comes from now on: {column, row, columns, rows, step}; {} is all of it.
// False: there is no connection.
export function askForPart(part) {
  if (live?.readyState !== WebSocket.OPEN) return false;
  live.send(JSON.stringify({part}));
  return true;
}

// Why the server lets nobody watch, which a browser does not tell of a WebSocket; '' where it would, or is not there.
const whyRefused = () => glance(`${cameraPath}/live`).catch(
    ({kind, message}) => kind && kind !== 'websocket' ? message : '');

// Calls with frames (facts, ArrayBuffer, when the facts came), every event, what the server refused of
// what it was sent (a text), and change of the connection (and why it was refused, or ''), for ever. What
// onFrame returns is waited for: the next frame but one is asked for when this one is done with, so
// that none waits on the way and grows old. Where the server has said nothing for long, another
// connection takes the place of this one.
export function watch(page) {
  const {onFrame, onEvent, onError, onLink} = page;
  const scheme = location.protocol === 'https:' ? 'wss:' : 'ws:';
  const socket = new WebSocket(`${scheme}//${location.host}${cameraPath}/live`);
  live = socket;
  socket.binaryType = 'arraybuffer';
  isFrameComing = false;
  const begun = performance.now();
  let facts = null, toldAt = 0;
  const more = count => socket.readyState === WebSocket.OPEN && socket.send(`{"more":${count}}`);
  const looking = setInterval(() => {
    if (Math.min(silence(), performance.now() - begun) < kGivenUp) return;
    clearInterval(looking);
    socket.onopen = socket.onmessage = socket.onclose = null;
    socket.close();
    watch(page);
  }, 1000);
  socket.onopen = () => {
    hear();
    isOpen = true;
    socket.send(`{"more":2,"beat":${kBeat}}`);
    onLink(true);
  };
  socket.onmessage = ({data}) => {
    hear();
    isFrameComing = false;
    if (typeof data !== 'string') {
      Promise.resolve(onFrame(facts, data, toldAt)).finally(() => more(1));
      return;
    }
    const message = JSON.parse(data);
    if (message.message === 'frame') [facts, toldAt, isFrameComing] = [message, performance.now(), true];
    if (message.message === 'event') onEvent(message.event);
    if (message.message === 'error') onError(message.error.text);
  };
  let isOpen = false;
  socket.onclose = async () => {
    clearInterval(looking);
    isFrameComing = false;
    onLink(false, isOpen ? '' : await whyRefused());
    setTimeout(() => watch(page), 1000);
  };
}
