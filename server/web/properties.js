// All properties as a form, made from the server's table. While it is open it is read again every
// few seconds, and at once after something has changed; what the user edits stays as it is.
import {ask, camera} from './server.js';

const kLong = 24;   // letters that stand beside a name
const kAgain = 3000; // ms, and four times what it took at least
const kOld = 5000;   // ms without an answer

function made(kind, facts, ...inside) {
  const element = Object.assign(document.createElement(kind), facts);
  element.append(...inside);
  return element;
}

// A value that can be written.
function control(entry, told) {
  const field = entry.fields[0];
  const isAlone = entry.fields.length === 1 && entry.groups === 1;
  let input;
  if (isAlone && (field.kind === 'switch' || field.kind === 'choice')) {
    input = made('select');
    const words = field.choices ?? ['on', 'off'];
    if (!told?.text) input.append(new Option('', ''));
    for (const word of words) input.append(new Option(word, word));
  } else {
    input = made('input', {placeholder: entry.syntax});
  }
  show(input, entry, told);
  input.addEventListener('keydown', event => event.key === 'Escape' && restore(input));
  return input;
}

function show(input, entry, told) {
  input.value = input.told = told?.text ?? '';
  input.title = [entry.range, told?.trouble].filter(Boolean).join('; ');
}

// What the camera told last, in place of what somebody wrote.
function restore(input) {
  input.value = input.told;
  input.classList.remove('wrong');
  complain(input.closest('.property'), '');
}

// Whether somebody has written into it, or is about to.
function isEdited(input) {
  const isEntered = input.matches('input') && input === document.activeElement;
  return isEntered || input.value !== input.told || input.matches('.wrong');
}

// What can only be read.
function textRow(entry, told) {
  const value = made('output');
  const row = made('div', {}, made('span', {}, entry.label), value);
  row.take = ({[entry.name]: now}) => {
    const text = now?.text ?? now?.trouble ?? '';
    if (value.textContent !== text) value.textContent = text;
    value.className = now?.trouble ? 'wrong' : '';
    row.className = text.length > kLong ? 'property long' : 'property';
  };
  row.take({[entry.name]: told});
  return row;
}

function fieldRow(entry, told, attempt) {
  const input = control(entry, told);
  input.addEventListener('change', () => input.value === input.told ? restore(input) : attempt(input, 'PUT', entry.name));
  input.addEventListener('blur', readSoon);
  const row = made('label', {className: 'property'}, entry.label, input);
  row.take = values => isEdited(input) || show(input, entry, values[entry.name]);
  return row;
}

// What does something, is as large as the sensor, or is one of many by a key: nothing is sent but by
// its button, or Enter, and one of many is read when its key is given.
function sentRow(entry, told, attempt) {
  const {key, label, nature, readable} = entry;
  const input = control(entry, told);
  const which = key && made('input', {placeholder: key.name, title: `0 to ${key.most}`, inputMode: 'numeric', className: 'key'});
  const button = made('button', {type: 'button', textContent: nature === 'action' ? 'Send' : 'Set'});
  const name = () => entry.name.replace(/:.*/, '') + (key ? `:${which.value.trim()}` : '');
  const send = () => attempt(input, 'PUT', name());
  button.onclick = send;
  input.onkeydown = event => {
    if (event.key === 'Enter') send();
  };
  input.setAttribute('aria-label', label);
  const readOne = () => readable && which.value.trim() && attempt(input, 'GET', name());
  if (key) {
    which.setAttribute('aria-label', `${label}: ${key.name}`);
    which.onchange = () => {
      input.value = input.told = '';
      input.classList.remove('wrong');
      readOne();
    };
  }
  const parts = made('div', {className: 'sent'}, ...(key ? [which] : []), input, button);
  const title = key ? `${label} (${key.name.toLowerCase()})` : label;
  const row = made('div', {className: 'property long'}, made('span', {}, title), parts);
  row.take = (values, changed) => {
    if (isEdited(input)) return;
    if (!key && entry.listed) show(input, entry, values[entry.name]);
    else if (changed.has(name())) readOne();
  };
  return row;
}

function rowOf(entry, told, attempt) {
  const isSent = entry.key || !entry.listed || (entry.writable && entry.nature === 'action');
  return (isSent ? sentRow : entry.writable ? fieldRow : textRow)(entry, told, attempt);
}

// Says below a row what is wrong with what was sent; '': nothing.
function complain(row, text) {
  row.querySelector('p')?.remove();
  if (text) row.append(made('p', {className: 'wrong', textContent: text, role: 'alert'}));
}

let rows = [];               // of what is shown
let form = null;             // where
const changed = new Set();   // names of what has changed since it was read
let isReading = false, timer = 0;

export async function showProperties(place, tell) {
  const [{properties}, values] =
      await Promise.all([ask('GET', '/api/v1/properties'), camera('GET', '/properties')]);
  const attempt = async (input, method, name) => {
    const body = method === 'PUT' ? {value: input.value} : undefined;
    const row = input.closest('.property');
    try {
      input.value = input.told = (await camera(method, `/properties/${encodeURIComponent(name)}`, body)).text;
      input.classList.remove('wrong');
      complain(row, '');
    } catch (error) {
      input.classList.add('wrong');
      complain(row, error.message);
      tell(error.message);
    }
  };
  place.replaceChildren();
  [rows, form] = [[], place];
  let group = '';
  for (const entry of properties) {
    if (entry.group !== group) place.append(made('h3', {textContent: group = entry.group}));
    const row = Object.assign(rowOf(entry, values[entry.name], attempt), {title: entry.help});
    rows.push(row);
    place.append(row);
  }
  readLater(kAgain);
}

function readLater(ms) {
  clearTimeout(timer);
  timer = setTimeout(readAgain, ms);
}

// One question at a time. What cannot be read is not shown as current.
async function readAgain() {
  if (isReading || !form?.parentElement.open) return;
  isReading = true;
  const news = new Set(changed), begun = performance.now();
  const aging = setTimeout(() => form.classList.add('old'), kOld);
  changed.clear();
  try {
    const values = await camera('GET', '/properties');
    rows.forEach(row => row.take(values, news));
    form.classList.remove('old');
  } catch {
    form.classList.add('old');
  } finally {
    isReading = false;
    clearTimeout(aging);
    readLater(changed.size > 0 ? 0 : Math.max(kAgain, 4 * (performance.now() - begun)));
  }
}

const readSoon = () => form && !isReading && readLater(0);

// After one has been set, by whomever.
export function onProperty(name) {
  if (!form?.parentElement.open) return;
  changed.add(name);
  readSoon();
}
