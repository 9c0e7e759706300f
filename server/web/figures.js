// Figures of a frame: histogram, and a stretch that shows a sky and its stars.

const kSamples = 1 << 17;
const kSlice = 1 << 22; // pixels that are counted without a rest

function bounds(pixels, step, from, to, [least, most]) {
  for (let i = from; i < to; i += step) {
    const value = pixels[i];
    if (value < least) least = value;
    if (value > most) most = value;
  }
  return [least, most];
}

function count(pixels, step, from, to, counts, least, scale) {
  if (scale === 1) {
    for (let i = from; i < to; i += step) counts[pixels[i] - least]++;
  } else {
    for (let i = from; i < to; i += step) counts[Math.floor((pixels[i] - least) * scale)]++;
  }
}

// The lower one of the middle values. Where bins are wider than 1, those of its bin are counted one by one.
function* middleOf(pixels, {counts, least, scale}) {
  const findIn = (list, wanted) => {
    for (let at = 0; ; ++at) {
      if (wanted <= list[at]) return [at, wanted];
      wanted -= list[at];
    }
  };
  const [bin, wanted] = findIn(counts, Math.ceil(pixels.length / 2));
  if (scale === 1) return least + bin;
  const first = Math.floor(least + bin / scale) - 1; // as the bin's edge may be rounded
  const values = new Uint32Array(Math.ceil(1 / scale) + 4);
  for (let from = 0; from < pixels.length; from += kSlice, yield) {
    const to = Math.min(pixels.length, from + kSlice);
    for (let i = from; i < to; ++i) {
      if (Math.floor((pixels[i] - least) * scale) === bin) values[pixels[i] - first]++;
    }
  }
  return first + findIn(values, wanted)[0];
}

// Rests after each slice, and returns the figures.
function* counting(pixels, bits, step) {
  const slice = kSlice * step;
  let [least, most] = bits === 32 ? [Infinity, 0] : [0, 2 ** bits - 1];
  for (let from = 0; bits === 32 && from < pixels.length; from += slice, yield) {
    [least, most] = bounds(pixels, step, from, Math.min(pixels.length, from + slice), [least, most]);
  }
  let counts = new Uint32Array(Math.min(65536, most - least + 1));
  const scale = counts.length / (most - least + 1);
  for (let from = 0; from < pixels.length; from += slice, yield) {
    count(pixels, step, from, Math.min(pixels.length, from + slice), counts, least, scale);
  }
  if (bits < 32) {
    [least, most] = [counts.findIndex(Boolean), counts.findLastIndex(Boolean)];
    counts = counts.subarray(least, most + 1);
  }
  const samples = Math.ceil(pixels.length / step);
  const percentile = part => {
    let wanted = part * samples;
    for (let bin = 0; bin < counts.length; ++bin) {
      wanted -= counts[bin];
      if (wanted <= 0) return least + (bin + 0.5) / scale;
    }
    return most;
  };
  return {least, most, counts, scale, samples, percentile, full: bits === 32 ? most : 2 ** bits - 1};
}

// Counts of bins from the least to the most value, `scale` bins for one, of so many pixels at most, evenly spread.
export function figuresOf(pixels, bits, most = kSamples) {
  const steps = counting(pixels, bits, Math.floor(pixels.length / most) | 1); // odd: not of some columns alone
  for (;;) {
    const {done, value} = steps.next();
    if (done) return value;
  }
}

function* countingAll(pixels, bits) {
  const figures = yield* counting(pixels, bits, 1);
  return {...figures, median: pixels.length > 0 ? yield* middleOf(pixels, figures) : null};
}

// The same of all pixels, with their median, while the page goes on; null when it is not wanted any more.
export async function exactFigures(pixels, bits, isWanted) {
  const steps = countingAll(pixels, bits);
  while (isWanted()) {
    const {done, value} = steps.next();
    if (done) return value;
    await new Promise(rested => setTimeout(rested));
  }
  return null;
}

export function stretchOf(kind, figures) {
  if (kind === 'full') return {black: 0, white: figures.full, bend: 0};
  const {percentile} = figures;
  if (kind === 'linear') return {black: percentile(0.005), white: percentile(0.995), bend: 0};
  const sky = percentile(0.5);
  const black = Math.max(0, sky - 2 * Math.max(1, sky - percentile(0.16)));
  return {black, white: Math.max(percentile(0.9995), black + 1), bend: 30};
}
