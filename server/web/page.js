import {
  ask, askForPart, camera, cameraPath, cameraNow, giveLease, glance, hasLease, isFrameLate, number, silence, takeLease, watch,
} from './server.js';
import {isOneOfSeveral, isQuiet, showCameras, showOne, showUnknown, troubleOf} from './cameras.js';
import {exactFigures, figuresOf, stretchOf} from './figures.js';
import {Gestures} from './gestures.js';
import {graphIn, recolour, showHistogram} from './graphs.js';
import {figuresIn, pixelsIn, regionOf} from './measure.js';
import {PartAsked, pixelOf, rowsThere, wholeOf} from './part.js';
import {onProperty, showProperties} from './properties.js';
import {onSequence, showPlans} from './sequences.js';
import {starAt} from './star.js';
import {writeValues} from './values.js';
import {View} from './view.js';

const at = id => document.getElementById(id);
const view = new View(at('image'), new URLSearchParams(location.search).get('painter'));
const arrays = {8: Uint8Array, 16: Uint16Array, 32: Uint32Array};
const temperatures = [[], [], []]; // when, of the sensor, and what it is to be
const recent = [];      // [time, bytes] of the last seconds' frames
const totals = {complete: 0, incomplete: 0, missed: 0};
let cameraFacts = null, exposure = null, isServerThere = false;
let refusal = ''; // why there is no live view of a server that is there
let newest = null;  // the frame that is drawn: facts, part, pixels, since: when its last packet came,
                    // and figures of it
let stretch = null; // of it

function tell(text, utc = new Date().toISOString()) {
  const line = document.createElement('li');
  line.textContent = `${utc.slice(11, 19)} ${text}`;
  at('events').prepend(line);
  while (at('events').children.length > 100) at('events').lastChild.remove();
}

// Adds a row to columns, and forgets the first one beyond so many.
function keepLast(columns, most, row) {
  columns.forEach((column, at) => {
    column.push(row[at]);
    if (column.length > most) column.shift();
  });
}

function doing(work) {
  note('');
  return work().catch(error => {
    note(error.message, true);
    tell(error.message);
    refresh();
  });
}

// ---- Frames

// A list of names and texts.
function showList(place, rows) {
  place.replaceChildren(...rows.flatMap(([name, text, isWrong]) => {
    const [title, value] = [document.createElement('dt'), document.createElement('dd')];
    title.textContent = name;
    value.textContent = text;
    if (isWrong) value.className = 'wrong';
    return [title, value];
  }));
}

function binText([columns, rows]) {
  return columns && rows ? `${columns} x ${rows} pixels in one` : 'by tables';
}

const inAll = share => share > 1 ? `, of 1 in ${share}` : '';

function medianText({median, scale, percentile}) {
  if (median !== undefined) return String(median);
  return `${scale < 1 ? 'about ' : ''}${Math.floor(percentile(0.5))}`;
}

function showFacts({facts, figures}) {
  const count = facts.columns * rowsThere({facts}, wholeOf(facts));
  const share = Math.round(count / figures.samples);
  const has = text => count > 0 ? text : 'none came';
  showList(at('facts'), [
    ['size', `${facts.columns} x ${facts.rows}, ${facts.bits} bits`],
    ...(facts.kind === 'area' ? [] : [['bins', binText(facts.binning)]]),
    ['exposure', `${facts.exposure} s, ${facts.type}`],
    ['middle', `${facts.times.middle.slice(11, 23)} +/- ${(facts.times.uncertainty * 1000).toFixed(1)} ms`],
    ['values', has(`${figures.least} to ${figures.most}${inAll(share)}`)],
    ['median', has(medianText(figures))],
    ['sum', String(facts.sum)],
    ['pixels', facts.complete ? 'complete' : `${facts.packets_missing} packet${facts.packets_missing === 1 ? '' : 's'} missing`, !facts.complete],
  ]);
}

// ---- A star

let star = null;    // where it was last, and what it was like: of starAt()
let widths = [[], [], []];  // frames from 1, half flux diameter, full width at half of its peak

let picked = null;  // a place where one is looked for, as soon as each pixel there is known

// What a pixel has at most: of a bin, when each in it is full. Infinity: not known.
function fullOf({bits, binning: [columns, rows]}) {
  if (bits < 32) return 2 ** bits - 1;
  return columns * rows > 1 ? columns * rows * 65535 : Infinity;
}

// The star near a place of the newest frame.
function starNear(column, row) {
  const {part, pixels, facts} = newest;
  const {columns, rows} = part;
  const found = starAt({columns, rows, pixels, full: fullOf(facts)}, column - part.column, row - part.row);
  return found && {...found, column: found.column + part.column, row: found.row + part.row};
}

function pick(place) {
  [star, picked] = [null, place];
  widths = [[], [], []];
  at('star').hidden = true;
  note('');
  askForWhatShows();
  if (place && newest.part.step === 1) lookForStar();
  showRing();
}

function lookForStar() {
  star = starNear(picked[0] - 0.5, picked[1] - 0.5);
  picked = null;
  at('star').hidden = !star;
  if (star) keepWidths(star);
  else note('no star there');
  showStar();
}

function keepWidths(found) {
  keepLast(widths, 300, [(widths[0].at(-1) ?? 0) + 1, found?.hfd ?? null, found?.fwhm || null]);
}

// The star of the frame before, which may have moved a little.
function followStar(isAgain) {
  if (newest.part.step > 1) return;
  if (picked) return lookForStar();
  if (!star || isAgain) return;
  const found = starNear(star.column, star.row);
  keepWidths(found);
  star = found ?? {...star, isLost: true};
  showRing();
}

function showStar() {
  showRing();
  if (!star) return;
  at('width').className = star.isLost ? 'wrong' : '';
  at('profile').classList.toggle('old', Boolean(star.isLost));
  const width = Number.isFinite(star.fwhm) ? `${star.fwhm.toFixed(2)} pixels` : 'not known';
  at('width').textContent = star.isLost ? 'the star is lost' :
      `HFD ${star.hfd.toFixed(2)}, FWHM ${width}; at ${star.column.toFixed(1)}, ` +
      `${star.row.toFixed(1)}; peak ${Math.round(star.peak)}${star.isFull ? ', full' : ''}`;
  graphIn('profile').show([0, 1].map(column => star.profile.map(point => point[column])), 0);
  graphIn('focus').show(widths, widths[0].length - 1);
}

function showRing() {
  const isShown = star && newest && !star.isLost;
  at('ring').setAttribute('visibility', isShown ? 'visible' : 'hidden');
  if (!isShown) return;
  const [scale, left, top] = view.placing().map(part => part / devicePixelRatio);
  at('ring').setAttribute('cx', left + (star.column + 0.5) * scale);
  at('ring').setAttribute('cy', top + (star.row + 0.5) * scale);
  at('ring').setAttribute('r', Math.max(12, 2 * star.radius * scale));
}

// ---- A region

let measured = null; // in pixels of the frame

function measure(region) {
  measured = region;
  at('region-facts').hidden = !measured;
  if (newest) showCounts();
  showRegion();
  showMeasured();
}

function isMissingIn({row, rows}) {
  const {missing_rows: missing} = newest.facts;
  return missing ? missing.some(each => each >= row && each < row + rows) : true; // any may be
}

function showRegion() {
  if (!measured || !newest) return;
  const {column, row, columns, rows} = measured;
  const figures = figuresIn(newest, measured);
  const size = ['size', `${columns} x ${rows} at ${column}, ${row}`];
  showList(at('figures'), !figures ? [size, ['', rowsThere(newest, measured) ? 'not in this frame' : 'none of its rows came', true]] : [
    size,
    ['values', `${figures.least} to ${figures.most}${inAll(Math.round(1 / figures.share))}`],
    ['median', String(figures.median)],
    ['mean', figures.mean.toFixed(2)],
    ['deviation', figures.deviation.toFixed(2)],
    ...(isMissingIn(measured) ? [['', 'rows are missing', true]] : []),
  ]);
}

function showMeasured() {
  at('measured').setAttribute('visibility', measured && newest ? 'visible' : 'hidden');
  if (!measured || !newest) return;
  const [scale, left, top] = view.placing().map(part => part / devicePixelRatio);
  const {column, row, columns, rows} = measured;
  const sides = {x: left + column * scale, y: top + row * scale, width: columns * scale, height: rows * scale};
  for (const [side, length] of Object.entries(sides)) at('measured').setAttribute(side, length);
}

// ---- The pixel under the mouse

let pointer = null; // the last event of it, or of the last finger; null: it has left

function showPixel() {
  const pixel = newest && pointer && pixelOf(newest, ...view.pixelAt(pointer));
  const text = pixel ? `${pixel[0]}, ${pixel[1]}: ${pixel[2]}` : '';
  if (at('pixel').textContent !== text) at('pixel').textContent = text;
}

view.onDraw = () => {
  writeValues(at('values'), view.frame, view.placing(), at('image'));
  showPixel();
  wantPanel();
  showRing();
  showMeasured();
};

// ---- The newest frame

const part = new PartAsked(askForPart, () => {
  askForWhatShows();
  countAll();
});

// A star is looked at pixel by pixel, wherever it moves.
function askForWhatShows() {
  const isAll = !part.isQuick || star || picked;
  part.ask(isAll ? {} : view.part());
}

// Stars and regions are where they are in frames of one area and one binning. `why`: which of them is another.
function dropPlaces(why) {
  const isStar = Boolean(star || picked);
  if (isStar) pick(null);
  if (measured) measure(null);
  if (isStar) note(`the star was left: ${why}`, false, true);
}

const shapeOf = ({columns, rows, area, binning}) => JSON.stringify([columns, rows, area, binning]);

// Those of rows that came; where none did, what stands in them.
const knownPixels = frame => pixelsIn(frame, wholeOf(frame.facts)) ?? frame.pixels;

function showFrame() {
  const {facts, pixels} = newest;
  newest.figures ??= figuresOf(knownPixels(newest), facts.bits);
  stretch = stretchOf(at('stretch').value, newest.figures);
  view.show({columns: facts.columns, rows: facts.rows, bits: facts.bits, part: newest.part, pixels,
             missingRows: facts.missing_rows, stretch, full: fullOf(facts)});
  followStar(facts.again);
  askForWhatShows();
  showNotes();
  const name = `${facts.readout}.${facts.number}`;
  if (at('image').dataset.frame !== name) at('image').dataset.frame = name;
}

// Figures of each pixel of a frame that stays, in place of those of some.
async function countAll() {
  const frame = newest;
  const isWanted = () => frame === newest && !part.isQuick;
  if (!frame || frame.pixels.length < frame.facts.columns * frame.facts.rows) return;
  const figures = await exactFigures(knownPixels(frame), frame.facts.bits, isWanted);
  if (!figures) return;
  frame.figures = figures;
  showPanel();
}

// What stands beside the image; it is for reading, which needs no more than some a second.
let panelAt = 0, panelTimer = 0;
function wantPanel() {
  panelTimer ||= setTimeout(showPanel, Math.max(0, panelAt + 150 - performance.now()));
}

const kMostCounted = 1 << 20; // pixels of what is seen, or of a region

// Of the region that is measured, or of what is to be seen: what it is, and its figures.
function counted() {
  const {facts, facts: {columns, rows, bits}} = newest;
  const area = measured ?? view.seen();
  const isAll = !area || (area.columns === columns && area.rows === rows);
  const pixels = isAll ? null : pixelsIn(newest, area);
  if (!pixels) return ['the whole frame', newest.figures, columns * rowsThere(newest, wholeOf(facts))];
  const what = `${measured ? 'the region' : 'what is seen'}, ${area.columns} x ${area.rows} at ${area.column}, ${area.row}`;
  return [what, figuresOf(pixels, bits, kMostCounted), area.columns * rowsThere(newest, area)];
}

function showCounts() {
  const [what, figures, count] = counted();
  at('counted').textContent = `Histogram of ${what}${inAll(Math.round(count / figures.samples))}`;
  const {above, from} = showHistogram(figures, stretch);
  at('above').textContent = above ? `and ${above} above ${from - 1}, to ${figures.most}` : '';
}

function showPanel() {
  clearTimeout(panelTimer);
  [panelAt, panelTimer] = [performance.now(), 0];
  showCounts();
  showFacts(newest);
  showStar();
  showRegion();
  showTruth();
  const {exposure_id: id, complete} = newest.facts;
  // Of a sequence: it is a file already. Of a connection that was: its server may be gone, with its frames.
  at('save').hidden = id === 0 || newest.isOfBefore;
  at('save').download = `camera-${number}-exposure-${id}.fits`;
  at('save').textContent = complete ? 'FITS' : 'FITS, incomplete';
  at('save').href = `${cameraPath}/exposures/${id}/frame.fits${complete ? '' : '?incomplete=yes'}`;
}

let arrived = null; // the newest frame that came
let drawn = null;   // settles when it is drawn
function onFrame(facts, buffer, toldAt) {
  const {part: sent = wholeOf(facts)} = facts;
  arrived = {facts, part: sent, pixels: new arrays[facts.bits](buffer), since: toldAt - facts.age * 1000};
  if (!facts.again) {
    part.came(facts);
    recent.push([performance.now(), buffer.byteLength]);
    totals[facts.complete ? 'complete' : 'incomplete']++;
    totals.missed += facts.missed;
  }
  drawn ??= new Promise(done => requestAnimationFrame(() => {
    drawn = null;
    done();
    const before = newest;
    newest = arrived;
    if (before && shapeOf(before.facts) !== shapeOf(newest.facts)) {
      dropPlaces(String(before.facts.binning) === String(newest.facts.binning) ? 'another area' : 'other bins');
    }
    showFrame();
    if (!part.isQuick && newest.facts.again) countAll();
  }));
  return drawn;
}

function showTruth() {
  const now = performance.now();
  while (recent.length && now - recent[0][0] > 3000) recent.shift();
  const seconds = recent.length > 1 ? (now - recent[0][0]) / 1000 : 1;
  const bytes = recent.reduce((sum, each) => sum + each[1], 0);
  at('truth').textContent = `${(recent.length > 1 ? recent.length / seconds : 0).toFixed(1)} frames/s, ` +
      `${(recent.length > 1 ? bytes / seconds / 1e6 : 0).toFixed(1)} MB/s; ${totals.complete} complete, ` +
      `${totals.incomplete} incomplete, ${totals.missed} missed here`;
  showNotes();
}

const kSilence = 750; // ms; a server that is there says so more often

// Why nothing is known of the server by now; '' while it is.
function serverTrouble() {
  if (!isServerThere) return 'no connection to the server';
  return refusal || silence() < kSilence ? '' : `no word from the server for ${ageText(silence())}`;
}

const liveTrouble = () => serverTrouble() || (refusal && `no live view: ${refusal}`);
const isCut = () => serverTrouble() !== '' || Boolean(cameraFacts && !cameraFacts.link);

// Why there is no camera, where the server knows.
const noCamera = () => (cameraFacts && troubleOf(cameraFacts)) ?? 'no connection to the camera';

// Of a camera that is connected, and tells nothing; '': it does, or never sent a heartbeat.
function quietText() {
  if (!cameraFacts) return '';
  const {heardAt} = cameraFacts; // by now, whenever the server was asked
  const age = heardAt === null ? null : performance.now() - heardAt;
  return isQuiet(cameraFacts, age && age / 1000) ? `no heartbeat for ${ageText(age)}` : '';
}

function ageText(ms) {
  const seconds = Math.round(ms / 1000);
  return seconds < 120 ? `${Math.max(1, seconds)} s` : `${Math.round(seconds / 60)} min`;
}

// Says of every frame that is not current that it is not.
function showNotes() {
  const now = performance.now();
  const age = newest ? now - newest.since : 0;
  const notes = [];
  const isOld = !newest || age > 2000;
  const quiet = isOld && quietText() && `${quietText()} from the camera`;
  const trouble = liveTrouble() || (isCut() ? noCamera() : quiet);
  if (trouble) notes.push(trouble);
  if (!newest) notes.push('no frame yet');
  if (newest && !newest.facts.complete) notes.push('incomplete: rows are missing');
  const isBad = notes.length > 0;
  if (age > 2000) notes.push(`this frame is ${ageText(age)} old`);
  const text = notes.join('; ');
  at('stale').className = isBad ? 'bad' : '';
  at('stage').classList.toggle('old', Boolean(newest && trouble));
  if (at('stale').textContent !== text) at('stale').textContent = text;
}

// ---- State

// What was known last is not what is so.
function showCut() {
  document.body.classList.toggle('cut', isCut());
  const trouble = serverTrouble();
  if (!trouble) return;
  [at('link').textContent, at('link').className] = [isServerThere ? 'no word' : 'no connection', 'lamp bad'];
  if (cameraFacts) at('temperature').textContent = temperatureText('was ');
  [at('state').textContent, at('state').className] = [trouble, 'wrong'];
  at('start').disabled = at('live').disabled = at('stop').disabled = true;
}

function temperatureText(when) {
  const {sensor_temperature: sensor, board_temperature: board} = cameraFacts;
  if (sensor === null) return 'no temperature';
  return `${when}${sensor.toFixed(1)} \u00b0C, board ${board.toFixed(1)} \u00b0C`;
}

function showLink() {
  const {link, open} = cameraFacts;
  const quiet = quietText();
  const text = quiet || (link ? 'connected' : open ? 'link lost' : 'not there');
  if (at('link').textContent !== text) at('link').textContent = text;
  at('link').className = `lamp ${link && !quiet ? 'good' : 'bad'}`;
}

function showCamera() {
  const facts = cameraFacts;
  at('camera').textContent = facts.name || facts.target;
  showLink();
  const {lease} = facts;
  at('lease').textContent = !lease.held ? 'free for all' : hasLease() ? 'you control' : `${lease.holder} controls`;
  at('control').textContent = hasLease() ? 'Give back' : lease.held ? 'Take over' : 'Take control';
  at('temperature').textContent = temperatureText('');
  document.title = `${isOneOfSeveral() ? `${number} ` : ''}${at('camera').textContent} - vxcamd`;
}

// Beside the state until the next command, or until what runs has ended, unless it `stays`: text, isWrong, stays.
let notice = null;
function note(text, isWrong, stays) {
  notice = text ? {text, isWrong, stays} : null;
  showExposure();
}

// Of one that runs: whether the camera has told nothing of it yet.
const isAwaited = ({progress}) => progress.phase === 'ended';

const kTold = 2; // s of an exposure from which on its seconds are told

function stateOf(each) {
  const {over, state, error, plan, progress} = each;
  if (over) return error && !/ was aborted$/.test(error.text) ? `${state}: ${error.text}` : state;
  if (isAwaited(each)) return 'waiting for the camera';
  const isLong = progress.phase === 'exposing' && plan.exposure >= kTold;
  const seconds = isLong ? `, ${Math.floor(progress.elapsed)} of ${plan.exposure} s` : '';
  return `${plan.frames === 0 ? 'live' : `frame ${progress.frame} of ${plan.frames}`}, ${progress.phase}${seconds}`;
}

// 0 to 1: of the phase that is under way.
function doneOf(each) {
  if (each.over) return each.state === 'complete' ? 1 : 0;
  if (isAwaited(each)) return 0;
  return each.progress.phase === 'exposing' ? each.progress.done : 1;
}

// Where something stands in the window; undefined: out of sight.
function topOf(element) {
  const [{top}, list] = [at(element), document.querySelector('aside')].map(each => each.getBoundingClientRect());
  return top >= list.top && top < list.bottom ? top : undefined;
}

// Scrolls what has moved back to where it stood.
function holdAt(element, top) {
  if (top !== undefined) document.querySelector('aside').scrollTop += at(element).getBoundingClientRect().top - top;
}

function showExposure() {
  const isOver = !exposure || exposure.over;
  const plan = cameraFacts?.sequence, quiet = quietText();
  const isOther = document.body.matches('.in-sequence') !== Boolean(plan);
  const top = isOther ? topOf('of-plans') : undefined;
  document.body.classList.toggle('in-sequence', Boolean(plan));
  at('start').disabled = at('live').disabled = !isOver || Boolean(plan);
  at('stop').disabled = isOver;
  at('start').title = plan ? `the sequence ${plan} runs` : 'Enter';
  at('live').title = plan ? `the sequence ${plan} runs` : 'l';
  at('stop').title = plan ? 'the sequence is stopped under Sequence' : 'Escape';
  if (notice && !notice.stays && (plan || !isOver)) notice.isPassing = true;
  else if (notice?.isPassing) notice = null;
  const texts = [plan ? `the sequence ${plan} runs; it is stopped under Sequence` : exposure ? stateOf(exposure) : isCut() ? noCamera() : quiet || 'idle'];
  if (notice && isOver && !plan) texts.pop();
  if (quiet && !texts.includes(quiet)) texts.push(quiet);
  if (notice) texts.push(notice.text);
  at('state').textContent = texts.join('; ');
  const isAbsent = !plan && !exposure && isCut();
  const isFailed = isAbsent || isOver && !plan && exposure?.error && exposure.state !== 'aborted';
  at('state').className = (quiet || (notice ? notice.isWrong : isFailed)) ? 'wrong' : '';
  holdAt('of-plans', top);
  at('progress').value = plan || !exposure ? 0 : doneOf(exposure); // that of a plan is told there
}

// When the camera's last heartbeat was, by the page's clock.
function keepHeard(age) {
  cameraFacts.heardAt = age === null ? null : performance.now() - age * 1000;
}

// Of an exposure that another server knew, nothing is known.
function forgotten(error) {
  if (!error.kind) throw error;
  return null;
}

async function look() {
  try {
    cameraFacts = await cameraNow();
    keepHeard(cameraFacts.heartbeat_age);
    isServerThere = true;
    showCamera();
    showOne(cameraFacts);
    const id = cameraFacts.exposure ?? exposure?.id;
    const before = exposure;
    if (id) exposure = await glance(`${cameraPath}/exposures/${id}`).catch(forgotten);
    if (before && !before.over && !exposure) note('the exposure was lost with the server', true);
    showExposure();
  } catch (error) {
    if (error.kind === 'token') at('login').open || at('login').showModal();
    else if (error.kind === 'unknown-camera') showCameras();
    else if (error.name !== 'TimeoutError' || refusal) isServerThere = false; // that one is told by the silence
  }
  showCut();
  showTruth();
}

// However often it is asked for: one question at a time, and some a second.
let isLooking = false, isNews = false;
async function refresh() {
  isNews = true;
  if (isLooking) return;
  isLooking = true;
  try {
    while (isNews) {
      isNews = false;
      await look();
      await new Promise(done => setTimeout(done, 100));
    }
  } finally {
    isLooking = false;
  }
}

// Where heartbeats were missed, its lines have a gap.
function keepTemperature(time, sensor) {
  const [last, before] = [temperatures[0].at(-1), temperatures[0].at(-2)];
  const interval = before === undefined ? null : last - before;
  if (isQuiet({link: true, heartbeat_interval: interval}, time - last)) keepLast(temperatures, 3600, [time - (interval ?? 1), null, null]);
  keepLast(temperatures, 3600, [time, sensor, setTo]);
}

function showTemperature({utc, sensor_temperature, board_temperature}) {
  keepTemperature(Date.parse(utc) / 1000, sensor_temperature);
  graphIn('temperatures').show(temperatures, temperatures[0].length - 1);
  if (!cameraFacts) return;
  keepHeard(0);
  Object.assign(cameraFacts, {sensor_temperature, board_temperature});
  showCamera();
}

function onEvent(event) {
  if (event.event === 'heartbeat') {
    if (event.sensor_temperature !== undefined) showTemperature(event);
    return;
  }
  if (event.event === 'link-lost' && cameraFacts) { // at once; the rest is asked for
    cameraFacts.link = false;
    showTruth();
  }
  if (event.event === 'property') {
    onProperty(event.name);
    showArea().catch(() => {});
  }
  if (['property', 'lease', 'link-restored'].includes(event.event)) showCooler().catch(() => {});
  if (event.event === 'sequence') onSequence();
  if (event.event !== 'frame') {
    tell([event.event, event.name, event.plan, event.state, event.holder, event.file, event.failure, event.text]
        .filter(Boolean).join(' '), event.utc);
  }
  refresh();
}

// ---- Commands

// Says beside a field what is wrong with it; '': nothing.
function complain(field, text = '') {
  at(field).classList.toggle('wrong', text !== '');
  at(`${field}-wrong`).textContent = text;
}

// The number in a field, undefined when it is empty; null, and said beside it, when there is no number of `what`.
function numberIn(field, what, least = -Infinity) {
  const text = at(field).value.trim();
  const number = text === '' ? undefined : Number(text);
  const isRight = number === undefined || (Number.isFinite(number) && number >= least);
  complain(field, isRight ? '' : `'${text}' is no number of ${what}`);
  return isRight ? number : null;
}

// Columns and rows in a bin; null, and said beside the field, when it says something else.
function bins() {
  const [, columns, rows = columns] = /^\s*(\d+)\s*(?:[x,]\s*(\d+)\s*)?$/i.exec(at('bins').value) ?? [];
  const isRight = Number(columns) > 0 && Number(rows) > 0;
  complain('bins', isRight ? '' : `'${at('bins').value}' is no bin: 2, or 2x3`);
  return isRight ? [Number(columns), Number(rows)] : null;
}

const isBinned = () => /[^\s1x,]|1\d/i.test(at('bins').value);

// The server's sentence begins with what it is about, maybe behind the camera. False: that has no field.
const kFields = {exposure: 'seconds', frames: 'frames', binning: 'bins'};
function complainOf({kind, message}) {
  const about = kind === 'usage' && Object.keys(kFields).find(word => new RegExp(`(^|: )${word}\\b`).test(message));
  if (about) complain(kFields[about], message);
  return Boolean(about);
}

// An empty field leaves the exposure time to the camera.
async function expose(frames) {
  const [seconds, binning] = [numberIn('seconds', 'seconds', 0), bins()];
  if (seconds === null || !binning) return;
  const kind = isBinned() ? {binning} : {bits: Number(at('bits').value)};
  try {
    exposure = await camera('POST', '/exposures', {exposure: seconds, frames, type: at('type').value, ...kind});
  } catch (error) {
    if (!complainOf(error)) throw error;
    tell(error.message);
  }
  showExposure();
}

async function stop() {
  if (exposure && !exposure.over) exposure = await camera('DELETE', `/exposures/${exposure.id}`);
  showExposure();
}

async function setArea(wanted) {
  const value = wanted ? [wanted.column, wanted.row, wanted.columns, wanted.rows].join(',') : 'none';
  await camera('PUT', '/properties/area', {value});
  dropPlaces('another area');
  await showArea();
}

// What the camera reads, whoever has set it.
async function showArea() {
  const [{value, text}, {columns, rows}] =
      await Promise.all([camera('GET', '/properties/area'), cameraFacts ?? camera('GET')]);
  const isWhole = !value || (value.columns === columns && value.rows === rows);
  areaText = isWhole ? 'whole sensor' : `area ${text}`;
  at('whole').hidden = isWhole;
  showReads();
}

let areaText = '';
function showReads() {
  at('bits').disabled = isBinned();
  at('bits').title = isBinned() ? 'binned frames have 32' : '';
  at('area').textContent = isBinned() ? 'whole sensor, as bins are of all of it' : areaText;
}

// ---- The cooler

let setTo = null; // degrees; null while nothing is cooled
let target = '';  // the camera's, as the field shows it but while somebody writes

// What the camera tells, in place of what was refused.
async function showCooler() {
  const [{value: degrees}, {value: isOn}] =
      await Promise.all([camera('GET', '/properties/target-temp'), camera('GET', '/properties/cooling')]);
  setTo = isOn ? degrees : null;
  at('cooling').checked = isOn;
  complain('cooling');
  const field = at('target');
  const isEdited = field === document.activeElement && field.value !== target && !field.matches('.wrong');
  target = String(degrees);
  if (!isEdited) leaveTarget();
}

// False: it was refused, which is said beside the field.
async function setCooler(field, property, value) {
  try {
    await camera('PUT', `/properties/${property}`, {value});
    return true;
  } catch (error) {
    complain(field, error.message);
    tell(error.message);
    refresh();
    return false;
  }
}

// The camera's value again, and nothing is sent.
function leaveTarget() {
  at('target').value = target;
  complain('target');
}

at('target').oninput = () => complain('target');
at('target').onkeydown = event => {
  if (event.key === 'Escape') leaveTarget();
};
at('target').onchange = () => at('target').value === target ? leaveTarget() : doing(async () => {
  const value = numberIn('target', 'degrees');
  if (value === undefined) complain('target', 'to how many degrees?');
  if (value === undefined || value === null) return;
  if (!await setCooler('target', 'target-temp', value)) return;
  target = at('target').value; // nobody's edit any more
  await showCooler();
});
at('cooling').onchange = () => doing(async () => {
  if (await setCooler('cooling', 'cooling', at('cooling').checked)) await showCooler();
  else at('cooling').checked = setTo !== null;
});

// ---- Buttons and keys

at('expose').addEventListener('submit', event => {
  event.preventDefault();
  const frames = numberIn('frames', 'frames', 1);
  if (frames === undefined) complain('frames', 'how many frames?');
  if (frames) doing(() => expose(frames));
});
at('bins').oninput = showReads;
at('live').onclick = () => doing(() => expose(0));
at('stop').onclick = () => doing(stop);
at('control').onclick = () => doing(async () => {
  await (hasLease() ? giveLease() : takeLease());
  await refresh();
});
at('stretch').onchange = () => newest && showFrame();
at('fit').onclick = () => view.setZoom(0);
at('leave').onclick = () => pick(null);
at('leave-region').onclick = () => measure(null);
at('one').onclick = () => view.setZoom(1);
at('table').ontoggle = () => at('table').open && doing(() => showProperties(at('properties'), tell));
at('mode').onclick = () => {
  const isDome = document.documentElement.classList.toggle('dome');
  localStorage.setItem('dome', isDome ? '1' : '');
  recolour();
};
if (localStorage.getItem('dome')) at('mode').click();
at('token').oninput = () => complain('token');
at('login').querySelector('form').onsubmit = async event => {
  event.preventDefault();
  try {
    await ask('POST', '/api/v1/session', {token: at('token').value});
    location.reload();
  } catch (error) {
    complain('token', error.kind === 'token' ? 'that is not the token' : error.message);
  }
};

document.addEventListener('keydown', event => {
  const isOfExposure = event.key === 'Escape' && event.target.closest('#expose');
  if ((event.target.matches('input, select') && !isOfExposure) || event.ctrlKey || event.metaKey) return;
  if (document.body.matches('.unknown')) return;
  if (event.key === 'Enter' && !event.repeat && !event.target.closest('button, a, summary')) at('start').click();
  if (event.key === 'Escape' && gestures.cancel()) return;
  const keys = {l: 'live', Escape: 'stop', f: 'fit', 1: 'one', n: 'mode'};
  if (keys[event.key]) at(keys[event.key]).click();
  tools.find(({value}) => value[0] === event.key)?.click();
  if (event.key === 'x') {
    pick(null);
    measure(null);
  }
  const moves = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1]};
  if (newest && moves[event.key]) view.move(...moves[event.key].map(part => part * 40 / (view.placing()[0])));
  if (newest && (event.key === '+' || event.key === '-')) {
    view.setZoom(view.placing()[0] * (event.key === '+' ? 2 : 0.5));
  }
});

// ---- Mouse and fingers

// From pixels of the frame to those of the sensor.
function sensorArea({column, row, columns, rows}) {
  const {facts} = newest;
  const [binX, binY] = facts.binning.map(bin => bin || 1);
  return {column: facts.area.column + column * binX, row: facts.area.row + row * binY,
          columns: columns * binX, rows: rows * binY};
}

const tools = [...at('tools').querySelectorAll('[value]')];
const gestures = new Gestures(view, at('region'), tools, {
  onMove: event => {
    pointer = event;
    showPixel();
  },
  onClick: (event, tool) => {
    if (tool !== 'area') pick(view.pixelAt(event));
    else if (event.shiftKey) doing(() => setArea(null));
  },
  onBox: (tool, from, to) => {
    const region = regionOf(newest.facts, view.pixelAt(from), view.pixelAt(to));
    if (!region) return;
    if (tool === 'measure') return measure(region);
    gestures.hold('pan'); // the next drag is to change no setting
    doing(() => setArea(sensorArea(region)));
  },
});
at('whole').onclick = () => doing(() => setArea(null));

// ---- Start

// By the page's own clock, as a server that hangs tells nothing.
let wasSilent = false, wasQuiet = false;
function listen() {
  const isSilent = silence() >= kSilence;
  if (isFrameLate() || isSilent !== wasSilent) refresh();
  if (isSilent && !wasSilent) showUnknown();
  wasSilent = isSilent;
  if (cameraFacts) showLink();
  const isQuietNow = quietText() !== '';
  if (isQuietNow !== wasQuiet) refresh();
  if (isQuietNow) showExposure(); // with the lamp's figure
  wasQuiet = isQuietNow;
  showCut();
  showTruth();
}

function onLink(isThere, why = '') {
  refusal = why;
  isServerThere = isThere || why !== '';
  if (newest) newest.isOfBefore = at('save').hidden = true; // until it, or another, comes again
  showCut();
  part.forget();
  refresh();
  if (!isThere) return;
  showCooler().catch(() => {});
  showArea().catch(() => {});
  showPlans().then(onSequence);
}

async function keepCameras() {
  await showCameras();
  setTimeout(keepCameras, isOneOfSeveral() ? 400 : 2000);
}
setTimeout(keepCameras, 400);
if (await showCameras()) {
  watch({onFrame, onEvent, onLink, onError: text => tell(`the live view was refused: ${text}`)});
  setInterval(() => exposure && !exposure.over && refresh(), 250);
  setInterval(listen, 100);
  document.addEventListener('visibilitychange', listen); // behind others it comes less often
  setInterval(refresh, 2000);
}
