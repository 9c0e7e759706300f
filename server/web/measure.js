// What the pixels of a region of a frame are like.
import {knownOf, rowsThere} from './part.js';

const kMost = 1 << 20; // pixels that are looked at

// Between two places of the frame, its pixels under both with all between them; they may lie outside.
export function regionOf({columns, rows}, [x0, y0], [x1, y1]) {
  const isBeside = (a, b, most) => Math.max(a, b) < 0 || Math.min(a, b) >= most;
  if (isBeside(x0, x1, columns) || isBeside(y0, y1, rows)) return null;
  const span = (a, b, most) => [Math.min(a, b), Math.max(a, b)].map(
      value => Math.min(Math.max(Math.floor(value), 0), most - 1));
  const [[left, right], [top, bottom]] = [span(x0, x1, columns), span(y0, y1, rows)];
  return {column: left, row: top, columns: right - left + 1, rows: bottom - top + 1};
}

// The pixels of a region of a frame {part, pixels, facts} that are there, row after row. Null: none is.
export function pixelsIn(frame, region) {
  const {part, pixels} = frame;
  const known = knownOf(frame, region);
  if (!known) return null;
  const [left, right, rows] = known;
  if (right - left === part.columns && rows.length === part.rows) return pixels;
  const inside = new pixels.constructor((right - left) * rows.length);
  rows.forEach((row, at) => {
    inside.set(pixels.subarray(row * part.columns + left, row * part.columns + right), at * (right - left));
  });
  return inside;
}

// Of the pixels of a region of a frame that are there: count, the share of those of the region's pixels
// that came, least, most, mean, deviation, median. Null: none is there.
export function figuresIn(frame, region) {
  const {part, pixels} = frame;
  const known = knownOf(frame, region);
  if (!known) return null;
  const [left, right, rows] = known;
  const every = Math.ceil(Math.sqrt((right - left) * rows.length / kMost));
  const values = new Float64Array(Math.ceil((right - left) / every) * Math.ceil(rows.length / every));
  let count = 0, sum = 0;
  for (let at = 0; at < rows.length; at += every) {
    for (let column = left; column < right; column += every) {
      sum += values[count++] = pixels[rows[at] * part.columns + column];
    }
  }
  const mean = sum / count;
  const squares = values.reduce((all, value) => all + (value - mean) ** 2, 0);
  values.sort();
  return {count, share: count / (region.columns * rowsThere(frame, region)), least: values[0], most: values[count - 1],
          mean, deviation: Math.sqrt(squares / Math.max(1, count - 1)), median: values[(count - 1) >> 1]};
}
