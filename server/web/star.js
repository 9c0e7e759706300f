// A star under the mouse: where it is, how wide, and its profile.

const kReach = 24;  // pixels around the place that are looked at
const kAnnuli = 20; // of the profile

const median = values => {
  const sorted = Float64Array.from(values).sort();
  return sorted[sorted.length >> 1];
};

// Level and noise of the background, from the rim of a box that is wider than any star.
function backgroundOf({pixels, columns, rows}, column, row) {
  const rim = [];
  for (let y = row - kReach; y <= row + kReach; ++y) {
    for (let x = column - kReach; x <= column + kReach; ++x) {
      const isRim = Math.max(Math.abs(x - column), Math.abs(y - row)) > kReach - 6;
      if (isRim && x >= 0 && y >= 0 && x < columns && y < rows) rim.push(pixels[y * columns + x]);
    }
  }
  if (rim.length < 50) return null;
  const level = median(rim);
  return {level, noise: Math.max(0.5, 1.4826 * median(rim.map(value => Math.abs(value - level))))};
}

// Pixels within a circle: [distance from the centre, what they have above the background, x, y].
function circle({pixels, columns, rows}, level, column, row, radius) {
  const found = [];
  for (let y = Math.ceil(row - radius); y <= row + radius; ++y) {
    for (let x = Math.ceil(column - radius); x <= column + radius; ++x) {
      const distance = Math.hypot(x - column, y - row);
      if (distance > radius) continue;
      if (x < 0 || y < 0 || x >= columns || y >= rows) return null; // light lies beyond the frame
      found.push([distance, pixels[y * columns + x] - level, x, y]);
    }
  }
  return found;
}

// The centre, and the radius that has all the light: moved and widened until they hold.
function placed(frame, background, column, row) {
  let radius = 6;
  for (let turn = 0; turn < 12; ++turn) {
    const inside = circle(frame, background.level, column, row, radius);
    if (!inside) return null;
    let sum = 0, x = 0, y = 0, second = 0;
    for (const [distance, value, px, py] of inside) {
      if (value < 2 * background.noise) continue;
      sum += value;
      x += value * px;
      y += value * py;
      second += value * distance * distance;
    }
    if (sum <= 0) return null;
    const wanted = Math.min(kReach - 7, Math.max(4, 3.5 * Math.sqrt(second / sum / 2)));
    const isSettled = Math.hypot(x / sum - column, y / sum - row) < 0.01 && Math.abs(wanted - radius) < 0.5;
    [column, row, radius] = [x / sum, y / sum, wanted];
    if (isSettled) break;
  }
  return {column, row, radius};
}

// Radius of the circle that has half of the flux; within an annulus light is spread evenly.
function halfFluxRadius(inside, flux) {
  const steps = 200, last = inside.at(-1)[0];
  const sums = new Float64Array(steps + 1);
  for (const [distance, value] of inside) {
    // A pixel reaches half a pixel to both sides.
    for (let part = 0; part < 8; ++part) {
      const at = Math.abs(distance + (part - 3.5) / 8);
      sums[Math.min(steps, Math.floor(at / last * steps))] += value / 8;
    }
  }
  let sum = 0;
  for (let step = 0; step <= steps; ++step) {
    if (sum + sums[step] >= flux / 2) return (step + (flux / 2 - sum) / sums[step]) / steps * last;
    sum += sums[step];
  }
  return last;
}

// Width at half of the peak of the gaussian that its core is like: a line through the logarithms of
// all pixels above a fifth of the peak, over the squares of their distances.
function coreWidth(inside, peak) {
  let n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (const [distance, value] of inside) {
    if (value < peak / 5) continue;
    const weight = value * value, x = distance * distance, y = Math.log(value);
    n += weight;
    sx += weight * x;
    sy += weight * y;
    sxx += weight * x * x;
    sxy += weight * x * y;
  }
  const slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
  return slope < 0 ? 2 * Math.sqrt(Math.LN2 / -slope) : NaN;
}

// The star at or near a pixel of a frame (pixels, columns, rows, full): column, row, flux, peak, hfd,
// fwhm, isFull, and profile, a list of [distance, mean above the background]. Null: there is none.
export function starAt(frame, column, row) {
  [column, row] = [Math.round(column), Math.round(row)];
  const background = backgroundOf(frame, column, row);
  if (!background) return null;
  const place = placed(frame, background, column, row);
  if (!place) return null;
  const inside = circle(frame, background.level, place.column, place.row, place.radius);
  if (!inside) return null;
  inside.sort((one, other) => one[0] - other[0]);
  const flux = inside.reduce((sum, each) => sum + each[1], 0);
  const peak = inside.reduce((most, each) => Math.max(most, each[1]), 0);
  if (peak < 5 * background.noise || flux <= 0) return null;
  const annuli = Array.from({length: kAnnuli}, () => [0, 0]);
  for (const [distance, value] of inside) {
    const annulus = annuli[Math.min(kAnnuli - 1, Math.floor(distance / place.radius * kAnnuli))];
    annulus[0] += value;
    ++annulus[1];
  }
  const profile = annuli.flatMap(([sum, count], i) =>
      count ? [[(i + 0.5) * place.radius / kAnnuli, sum / count]] : []);
  return {...place, flux, peak, profile, hfd: 2 * halfFluxRadius(inside, flux),
          fwhm: coreWidth(inside, peak), isFull: peak + background.level >= frame.full};
}
