// All properties as a form, made from the server's table.
import {ask, camera} from './server.js';

function control(entry, told, change) {
  const field = entry.fields[0];
  const isAlone = entry.fields.length === 1 && entry.groups === 1;
  let input;
  if (isAlone && (field.kind === 'switch' || field.kind === 'choice')) {
    input = document.createElement('select');
    const words = field.choices ?? ['on', 'off'];
    if (!told?.text) input.append(new Option('', ''));
    for (const word of words) input.append(new Option(word, word));
  } else {
    input = document.createElement('input');
    input.placeholder = entry.syntax;
  }
  input.value = told?.text ?? '';
  input.disabled = !entry.writable;
  input.title = [entry.range, told?.trouble].filter(Boolean).join('; ');
  input.addEventListener('change', () => change(entry.name, input));
  return input;
}

export async function showProperties(place, tell) {
  const [{properties}, values] =
      await Promise.all([ask('GET', '/api/v1/properties'), camera('GET', '/properties')]);
  const change = async (name, input) => {
    try {
      input.value = (await camera('PUT', `/properties/${name}`, {value: input.value})).text;
      input.classList.remove('wrong');
    } catch (error) {
      input.classList.add('wrong');
      tell(error.message);
    }
  };
  place.replaceChildren();
  let group = '';
  for (const entry of properties) {
    if (entry.key || !entry.listed || (entry.writable && entry.nature === 'action')) continue;
    if (entry.group !== group) {
      const title = document.createElement('h3');
      title.textContent = group = entry.group;
      place.append(title);
    }
    const label = document.createElement('label');
    label.title = entry.help;
    label.append(entry.label, control(entry, values[entry.name], change));
    place.append(label);
  }
}
