// Which pixels of the frames are asked for: while frames come quickly, those that the canvas can
// show; else all, so that what stays on the screen is there as a whole.

const kPause = 400; // ms without a new frame until the newest one is wanted whole

export const wholeOf = ({columns, rows}) => ({column: 0, row: 0, step: 1, columns, rows});

// The pixel at a place of a frame {part, pixels, facts}, or that of the part before it: its column, row
// and what is there: the value, or that its row is missing. Null: it is not there.
export function pixelOf({part, pixels, facts: {missing_rows: missing}}, column, row) {
  const [x, y] = [column - part.column, row - part.row].map(way => Math.floor(way / part.step));
  if (x < 0 || y < 0 || x >= part.columns || y >= part.rows) return null;
  const at = [part.column + x * part.step, part.row + y * part.step];
  const value = pixels[y * part.columns + x];
  if (!missing) return [...at, `${value}, if it is not missing`];
  return [...at, missing.includes(at[1]) ? 'missing' : value];
}

// Columns and rows of a frame {part, pixels, facts} that are there of a region: [left, right, rows], where
// those of rows that did not come are left out, as far as it is known. Null: none is there.
export function knownOf({part, facts}, region) {
  const along = (from, count, begin, most) => [
    Math.max(0, Math.ceil((from - begin) / part.step)),
    Math.min(most, Math.ceil((from + count - begin) / part.step)),
  ];
  const [left, right] = along(region.column, region.columns, part.column, part.columns);
  const [top, bottom] = along(region.row, region.rows, part.row, part.rows);
  const missing = new Set(facts.missing_rows);
  const rows = [];
  for (let y = top; y < bottom; ++y) {
    if (!missing.has(part.row + y * part.step)) rows.push(y);
  }
  return right > left && rows.length > 0 ? [left, right, rows] : null;
}

// How many rows of a region of a frame came.
export function rowsThere({facts: {missing_rows: missing}}, {row, rows}) {
  return rows - (missing ?? []).filter(each => each >= row && each < row + rows).length;
}

export class PartAsked {
  // send(part) tells the server; onPause() is called when no new frame has come for a while.
  constructor(send, onPause) {
    Object.assign(this, {send, onPause, isQuick: false, last: -Infinity, timer: 0});
    this.forget();
  }

  // A new connection gives whole frames.
  forget() {
    this.asked = '{}';
  }

  // A frame that is new has come. How quickly they do is told by the camera's times: here some may
  // have waited, and then come at once.
  came({times, missed}) {
    const end = Date.parse(times.end);
    this.isQuick = (end - this.last) / (missed + 1) < kPause;
    this.last = end;
    clearTimeout(this.timer);
    this.timer = setTimeout(() => {
      this.isQuick = false;
      this.onPause();
    }, kPause);
  }

  ask(part) {
    const text = JSON.stringify(part);
    if (text !== this.asked && this.send(part)) this.asked = text;
  }
}
