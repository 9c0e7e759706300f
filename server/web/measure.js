// What the pixels of a region of a frame are like.

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

// Columns and rows of a frame's part that a region has: [left, right, top, bottom], without the last ones.
function within(part, region) {
  const along = (from, count, begin, most) => [
    Math.max(0, Math.ceil((from - begin) / part.step)),
    Math.min(most, Math.ceil((from + count - begin) / part.step)),
  ];
  const [left, right] = along(region.column, region.columns, part.column, part.columns);
  const [top, bottom] = along(region.row, region.rows, part.row, part.rows);
  return right > left && bottom > top ? [left, right, top, bottom] : null;
}

// The pixels that are there of a region of a frame {part, pixels}, row after row. Null: none is there.
export function pixelsIn({part, pixels}, region) {
  const edges = within(part, region);
  if (!edges) return null;
  const [left, right, top, bottom] = edges;
  const inside = new pixels.constructor((right - left) * (bottom - top));
  for (let row = top, at = 0; row < bottom; ++row, at += right - left) {
    inside.set(pixels.subarray(row * part.columns + left, row * part.columns + right), at);
  }
  return inside;
}

// Of the pixels that are there of a region of a frame {part, pixels}: count, the share of the
// region's pixels that they are, least, most, mean, deviation, median. Null: none is there.
export function figuresIn({part, pixels}, region) {
  const edges = within(part, region);
  if (!edges) return null;
  const [left, right, top, bottom] = edges;
  const there = (right - left) * (bottom - top);
  const every = Math.ceil(Math.sqrt(there / kMost));
  const values = new Float64Array(Math.ceil((right - left) / every) * Math.ceil((bottom - top) / every));
  let count = 0, sum = 0;
  for (let row = top; row < bottom; row += every) {
    for (let column = left; column < right; column += every) {
      sum += values[count++] = pixels[row * part.columns + column];
    }
  }
  const mean = sum / count;
  const squares = values.reduce((all, value) => all + (value - mean) ** 2, 0);
  values.sort();
  return {count, share: count / (region.columns * region.rows), least: values[0], most: values[count - 1],
          mean, deviation: Math.sqrt(squares / Math.max(1, count - 1)), median: values[(count - 1) >> 1]};
}
