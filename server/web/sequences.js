// Plans on the server, and the sequence of this camera that takes one.
import {ask, camera, cameraPath, glance} from './server.js';

const at = id => document.getElementById(id);
let plans = [], hooks = false;
let state = {state: 'none', over: true};

const attempt = work => async () => {
  at('trouble').textContent = '';
  try {
    await work();
  } catch (error) {
    at('trouble').textContent = mistakesOf(error).map(each => `${error.of ? `${error.of}: ` : ''}${each}`).join('\n');
    await showPlans();
  }
};

function spanOf(seconds) {
  if (seconds < 60) return `${Math.ceil(seconds)} s`;
  const minutes = Math.ceil(seconds / 60);
  if (minutes < 60) return `${minutes} min`;
  return `${Math.floor(minutes / 60)} h ${String(minutes % 60).padStart(2, '0')} min`;
}

function sizeOf(bytes) {
  const [unit, part] = bytes < 1e6 ? ['kB', 1e3] : bytes < 1e9 ? ['MB', 1e6] : ['GB', 1e9];
  return `${(bytes / part).toFixed(bytes < 10 * part ? 1 : 0)} ${unit}`;
}

const some = (count, what) => `${count} ${what}${count === 1 ? '' : 's'}`;

function lines(place, texts, className = '') {
  place.replaceChildren(...texts.map(text => {
    const line = document.createElement('li');
    line.textContent = text;
    line.className = className;
    return line;
  }));
}

// ---- Plans

const isThere = name => plans.some(plan => plan.name === name);
const chosen = () => plans.find(plan => plan.name === at('plan').value);

function mistakesOf({mistakes, message, text = message}) {
  return mistakes?.map(each => each.line ? `line ${each.line}: ${each.text}` : each.text) ?? [text];
}

function checked(plan) {
  const facts = [some(plan.frames, 'frame'), `${spanOf(plan.exposure)} exposed`, `about ${spanOf(plan.duration)} in all`];
  if (plan.needs_bytes !== null) facts.push(sizeOf(plan.needs_bytes));
  if (plan.hooks) facts.push(some(plan.hooks, 'command') + (hooks ? '' : ', which this server does not run'));
  return [`good: ${facts.join(', ')}`].concat(begun(plan));
}

function begun({journal, frames}) {
  if (!journal || !state.over) return []; // it was asked for before this run
  if (journal.error) return [journal.error.text];
  return journal.complete ? ['it is complete'] : [`${journal.taken} of ${some(frames, 'frame')} taken in ${some(journal.runs, 'run')}`];
}

function showPlan() {
  const plan = chosen();
  const isFree = state.over && Boolean(plan?.good);
  at('run').disabled = !isFree;
  // Whether another folder has something of it is known when it begins.
  at('run').textContent = plan?.journal?.taken && !plan.journal.complete && !at('folder').value ? 'Go on' : 'Start';
  at('plan').disabled = at('folder').disabled = !state.over;
  at('halt').disabled = state.over;
  at('halt-after').disabled = state.state !== 'running';
  at('folder').placeholder = plan?.folder ? `folder: ${plan.folder}` : 'folder';
  if (!plan) lines(at('checked'), at('plan').length ? [] : ['there are no plans']);
  else if (plan.good) lines(at('checked'), checked(plan));
  else lines(at('checked'), mistakesOf(plan.error), 'wrong');
}

let lastAsked = 0; // of lists of plans

// Reads and checks them anew; without any, says why. An answer that a later one overtook is dropped.
export async function showPlans() {
  const mine = ++lastAsked;
  let list = {plans: [], hooks: false}, trouble = '';
  try {
    list = await ask('GET', '/api/v1/plans');
  } catch (error) {
    trouble = error.message;
  }
  if (mine !== lastAsked) return;
  const before = at('plan').value;
  ({plans, hooks} = list);
  at('no-plans').textContent = trouble;
  at('sequence').disabled = at('no-plans').textContent !== '';
  at('plan').replaceChildren(...plans.map(({name, good}) => new Option(good ? name : `! ${name}`, name)));
  const wanted = [state.over ? before : state.plan, state.plan, plans.find(plan => plan.good)?.name];
  at('plan').value = wanted.find(name => plans.some(plan => plan.name === name)) ?? plans[0]?.name ?? '';
  showPlan();
}

// ---- The sequence

async function showReport() {
  const report = await camera('GET', '/sequence/report');
  const {taken, frames, runs, files, failures} = report;
  lines(at('report-facts'), [
    `${report.plan}: ${report.complete ? 'complete' : 'not complete'}, ${taken} of ${some(frames, 'frame')}` +
        `${state.before ? `, ${state.before} before this run` : ''}`,
    `${some(runs, 'run')}, ${some(failures.length, 'failure')}, ${sizeOf(files.reduce((sum, file) => sum + file.bytes, 0))}`,
  ]);
  lines(at('report-failures'), failures.map(({utc, text}) => `${utc.slice(0, 19).replace('T', ' ')} ${text}`), 'wrong');
  lines(at('report-files'), files.map(({file, bytes}) => `${file} (${sizeOf(bytes)})`));
  at('report').hidden = false;
}

function showState() {
  const {frames, taken, left, last_failures: failures = [], error} = state;
  const isNone = state.state === 'none';
  at('progress-of-all').hidden = at('doing').hidden = at('counts').hidden = isNone;
  at('failures').hidden = isNone || state.over; // the report tells them, too
  if (isNone) return;
  at('progress-of-all').value = state.state === 'complete' ? 1 : state.done;
  at('doing').textContent = state.over ? `${state.plan}: ${state.state}${error && state.state === 'failed' ? `: ${error.text}` : ''}` :
      `${state.plan}${state.line ? `, line ${state.line}` : ''}: ${state.doing}${state.state === 'stopping' ? '; stops behind this frame' : ''}`;
  at('doing').className = state.state === 'failed' ? 'wrong' : '';
  at('counts').textContent = `${taken} of ${some(frames, 'frame')}${state.over ? '' : `, ${spanOf(left)} left`}` +
      `${state.failures ? `, ${some(state.failures, 'failure')}` : ''}`;
  lines(at('failures'), failures.slice(-3).map(({text}) => text), 'wrong');
}

function take(told) {
  const isNews = told.over !== state.over || told.plan !== state.plan;
  state = told;
  if (!state.over) at('report').hidden = true;
  showState();
  showPlan();
  if (!isNews) return;
  showPlans();
  if (state.over && state.state !== 'none') showReport().catch(() => {});
}

async function look() {
  try {
    take(await glance(`${cameraPath}/sequence`));
  } catch {
    // The server is gone, which the page tells, or knows no sequences, which the list of plans does.
  }
}

// After something about it has happened, or may have.
export const onSequence = look;

at('plan').onchange = at('folder').oninput = showPlan;
at('check').onclick = attempt(showPlans);
at('run').onclick = attempt(async () => {
  const folder = at('folder').value.trim();
  take(await camera('POST', '/sequence', {plan: at('plan').value, ...(folder && {folder})}));
});
at('add').onclick = () => at('file').click();
at('file').onchange = attempt(async () => {
  const [file] = at('file').files;
  if (!file) return;
  at('file').value = ''; // the same one may be chosen again
  await showPlans(); // others may have stored one meanwhile
  if (isThere(file.name) && !confirm(`The server has a plan ${file.name} already. Replace it?`)) return;
  const {name} = await ask('PUT', `/api/v1/plans/${encodeURIComponent(file.name)}`, file).catch(error => {
    throw Object.assign(error, {of: file.name});
  });
  await showPlans();
  if (!state.over) return;
  at('plan').value = name;
  showPlan();
});
at('halt').onclick = attempt(async () => take(await camera('DELETE', '/sequence?when=now')));
at('halt-after').onclick = attempt(async () => take(await camera('DELETE', '/sequence?when=frame')));
setInterval(() => state.over || look(), 1000);
