// All properties as a form, made from the server's table.
import {ask, camera} from './server.js';

const kLong = 24; // letters that stand beside a name

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
  input.value = told?.text ?? '';
  input.title = [entry.range, told?.trouble].filter(Boolean).join('; ');
  return input;
}

// What can only be read.
function textRow(entry, told) {
  const text = told?.text ?? told?.trouble ?? '';
  const value = made('output', {textContent: text, className: told?.trouble ? 'wrong' : ''});
  return made('div', {className: text.length > kLong ? 'property long' : 'property'}, made('span', {}, entry.label), value);
}

function fieldRow(entry, told, attempt) {
  const input = control(entry, told);
  input.addEventListener('change', () => attempt(input, 'PUT', entry.name));
  return made('label', {className: 'property'}, entry.label, input);
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
  input.onkeydown = event => event.key === 'Enter' && send();
  input.setAttribute('aria-label', label);
  if (key) {
    which.setAttribute('aria-label', `${label}: ${key.name}`);
    which.onchange = () => {
      input.value = '';
      if (readable && which.value.trim()) attempt(input, 'GET', name());
    };
  }
  const parts = made('div', {className: 'sent'}, ...(key ? [which] : []), input, button);
  const title = key ? `${label} (${key.name.toLowerCase()})` : label;
  return made('div', {className: 'property long'}, made('span', {}, title), parts);
}

function rowOf(entry, told, attempt) {
  const isSent = entry.key || !entry.listed || (entry.writable && entry.nature === 'action');
  return (isSent ? sentRow : entry.writable ? fieldRow : textRow)(entry, told, attempt);
}

export async function showProperties(place, tell) {
  const [{properties}, values] =
      await Promise.all([ask('GET', '/api/v1/properties'), camera('GET', '/properties')]);
  const attempt = async (input, method, name) => {
    const body = method === 'PUT' ? {value: input.value} : undefined;
    try {
      input.value = (await camera(method, `/properties/${encodeURIComponent(name)}`, body)).text;
      input.classList.remove('wrong');
    } catch (error) {
      input.classList.add('wrong');
      tell(error.message);
    }
  };
  place.replaceChildren();
  let group = '';
  for (const entry of properties) {
    if (entry.group !== group) place.append(made('h3', {textContent: group = entry.group}));
    place.append(Object.assign(rowOf(entry, values[entry.name], attempt), {title: entry.help}));
  }
}
