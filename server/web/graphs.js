// Graphs beside the image, each in an element of its own, drawn by uPlot.
import uPlot from './vendor/uPlot.esm.js';

const graphs = {};
const colours = {};

function readColours() {
  const style = getComputedStyle(document.documentElement);
  for (const name of ['panel', 'soft', 'line', 'accent', 'second']) {
    colours[name] = style.getPropertyValue(`--${name}`).trim();
  }
}

// After the page has got other colours.
export function recolour() {
  readColours();
  for (const {plot} of Object.values(graphs)) plot.redraw(false);
}
readColours();
matchMedia('(prefers-color-scheme: dark)').addEventListener('change', recolour);

const clock = seconds => new Date(seconds * 1000).toISOString().slice(11, 19); // UTC

const text = (value, digits) => value == null ? '\u2013' : value.toFixed(digits);

// Room for the longest of an axis' numbers.
const roomFor = (plot, texts) => 14 + 6.5 * Math.max(2, ...(texts ?? []).map(each => each.length));

const axis = more => ({
  stroke: () => colours.soft, font: '11px system-ui', size: 22, gap: 3, space: 56,
  grid: {stroke: () => colours.line, width: 1}, ticks: {stroke: () => colours.line, width: 1, size: 4},
  values: (plot, marks) => marks.map(mark => String(Number(mark.toFixed(6)))), ...more,
});

// A line of a graph: its name, the name of its colour, and the digits behind its point.
const line = (label, colour, digits, more) => ({
  label, colour, stroke: () => colours[colour], width: 1.5, points: {show: false},
  value: (plot, value) => text(value, digits), ...more,
});

const dashed = {dash: [5, 4]};
// One alone would be no line.
const dotted = {points: {show: (plot, at, first, last) => last - first < 30, size: 4, fill: () => colours.panel}};

class Graph {
  constructor(place, {x, axisX, axisY, scale = {}, lines, draw = []}) {
    this.place = place;
    this.plot = new uPlot({
      width: 300, height: 112, padding: [8, null, 0, axisY ? 0 : 28], // where its first number may lie
      legend: {markers: {stroke: (plot, at) => `var(--${lines[at - 1].colour})`, fill: () => 'none'}},
      cursor: {drag: {x: false, y: false}, y: false, points: {size: 6}},
      scales: {x: {time: false}, y: scale},
      axes: [axis(axisX), axisY ? axis({size: roomFor, space: 24}) : {show: false}],
      series: [x, ...lines],
      hooks: {draw},
    }, [[], ...lines.map(() => [])], place);
    new ResizeObserver(() => this.fit()).observe(place);
    this.fit();
  }

  fit() {
    const width = this.place.clientWidth;
    if (width && width !== this.plot.width) this.plot.setSize({width, height: this.plot.height});
  }

  // Columns: x, and the values of each line. Those at `told` are told while no mouse is on it.
  show(columns, told = null) {
    this.plot.setData(columns);
    if (this.plot.cursor.left < 0) this.plot.setLegend({idx: told}, false);
  }
}

// Full minutes of a time axis need no seconds.
const times = {incrs: [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200], space: 64,
               values: (plot, marks) => marks.map(mark => clock(mark).replace(/:00$/, ''))};

const kinds = {
  temperatures: {
    x: {label: 'at', value: (plot, value) => value ? clock(value) : ''}, axisX: times, axisY: true,
    lines: [line('sensor', 'accent', 1), line('set to', 'second', 1, dashed)],
  },
  focus: {
    x: line('frame', '', 0), axisX: {incrs: [1, 2, 5, 10, 20, 50, 100]}, axisY: true,
    lines: [line('HFD', 'accent', 2, dotted), line('FWHM', 'second', 2, {...dashed, ...dotted})],
  },
  profile: {
    x: line('pixels', '', 1), axisY: true,
    lines: [line('counts', 'accent', 0, {points: {show: true, size: 4, fill: () => colours.panel}})],
  },
  histogram: {
    x: line('value', '', 0), scale: {distr: 4, range: (plot, least, most) => [0, Math.max(1, most * 1.2)]},
    lines: [line('pixels', 'soft', 0, {width: 1, fill: () => colours.soft,
                                       paths: uPlot.paths.stepped({align: 1})})],
    draw: [drawLimits],
  },
};

// The graph in the element of that name; it is made when it is wanted first.
export function graphIn(name) {
  return graphs[name] ??= new Graph(document.getElementById(name), kinds[name]);
}

// ---- Histogram

const kBars = 300;
let limits = [];

function drawLimits({ctx, bbox: {left, top, width, height}, valToPos}) {
  ctx.save();
  ctx.fillStyle = colours.accent;
  for (const limit of limits) {
    const x = valToPos(limit, 'x', true);
    if (x >= left && x <= left + width) ctx.fillRect(x - devicePixelRatio, top, 2 * devicePixelRatio, height);
  }
  ctx.restore();
}

// The part of it where most pixels lie, with the limits of the stretch; how many samples lie above it, and from which value on.
export function showHistogram({counts, scale, least, most, percentile}, {black, white}) {
  const last = Math.min(most, Math.max(percentile(0.999), white) * 1.1);
  const wide = Math.max(1, Math.ceil((last - least + 1) / kBars)); // values in a bar
  let above = 0;
  const bars = Array(Math.ceil((last - least + 1) / wide)).fill(0);
  for (let bin = 0; bin < counts.length; ++bin) {
    const bar = Math.floor(bin / scale / wide);
    if (bar >= bars.length) above += counts[bin];
    else bars[bar] += counts[bin];
  }
  limits = [black, white];
  graphIn('histogram').show([bars.map((_, bar) => least + bar * wide), bars]);
  return {above, from: least + bars.length * wide};
}
