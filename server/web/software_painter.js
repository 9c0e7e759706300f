// Draws frames without a graphics card: looks each pixel of the screen up, and nothing else.

export const kBack = [20, 23, 26]; // red, green, blue beside the frame

const colour = (red, green, blue) => (255 << 24 | blue << 16 | green << 8 | red) >>> 0;
const kFull = colour(255, 64, 51), kStripe = colour(217, 26, 191), kGap = colour(51, 0, 51);
const kSteps = 4096; // of values with 32 bits between black and white

const bent = (part, bend) => bend > 0 ? Math.asinh(part * bend) / Math.asinh(bend) : part;
// How bright a value is drawn, 0 to 1.
export function levelOf(value, {black, white, bend}) {
  return bent(Math.min(1, Math.max(0, (value - black) / (white - black))), bend);
}

const grey = part => {
  const level = Math.round(255 * Math.min(1, Math.max(0, part)));
  return colour(level, level, level);
};

// Of each row of the part, whether it, or one that it stands for, did not come whole.
export function missingOf({missingRows, part}) {
  const isMissing = new Uint8Array(part.rows);
  if (!missingRows) return isMissing.fill(1);
  for (const row of missingRows) {
    const at = Math.floor((row - part.row) / part.step);
    if (at >= 0 && at < part.rows) isMissing[at] = 1;
  }
  return isMissing;
}

export class SoftwarePainter {
  constructor(canvas) {
    this.canvas = canvas;
    this.context = canvas.getContext('2d', {alpha: false, willReadFrequently: true});
    this.placed = '';
  }

  take(frame) {
    this.frame = frame;
    this.isMissing = missingOf(frame);
    this.makeTable(frame.bits);
  }

  // Colour of each value; of values with 32 bits, of steps from black to white.
  makeTable(bits) {
    const {stretch: {black, white, bend}, full} = this.frame;
    const count = bits === 32 ? kSteps + 1 : 2 ** bits;
    if (this.table?.length !== count) this.table = new Uint32Array(count);
    if (bits === 32) {
      this.table.forEach((_, step) => { this.table[step] = grey(bent(step / kSteps, bend)); });
      return;
    }
    this.table.fill(grey(0), 0, Math.max(0, Math.ceil(black)));
    this.table.fill(grey(1), Math.max(0, Math.floor(white)));
    for (let value = Math.max(0, Math.ceil(black)); value < Math.min(count, white); ++value) {
      this.table[value] = grey(bent((value - black) / (white - black), bend));
    }
    this.table.fill(kFull, full);
  }

  // Which column and row of the part each of the canvas shows; -1: none.
  place(scale, left, top) {
    const {width, height} = this.canvas;
    const {columns, rows, part} = this.frame;
    const placed = [width, height, columns, rows, ...Object.values(part), scale, left, top].join();
    if (placed === this.placed) return;
    this.placed = placed;
    const spots = (count, first, all, begin, most) => Int32Array.from({length: count}, (_, at) => {
      const pixel = Math.floor((at + 0.5 - first) / scale);
      const spot = Math.floor((pixel - begin) / part.step);
      return pixel < all && spot >= 0 && spot < most ? spot : -1;
    });
    this.column = spots(width, left, columns, part.column, part.columns);
    this.row = spots(height, top, rows, part.row, part.rows);
    this.begin = this.column.findIndex(spot => spot >= 0);
    this.end = this.column.findLastIndex(spot => spot >= 0) + 1;
    this.image = new ImageData(width, height);
    this.words = new Uint32Array(this.image.data.buffer);
    this.words.fill(colour(...kBack));
  }

  paint([scale, left, top]) {
    if (!this.canvas.width || !this.canvas.height) return;
    this.place(scale, left, top);
    const {width, height} = this.canvas;
    if (this.begin >= 0) {
      for (let y = 0, last = -1; y < height; ++y) {
        const row = this.row[y], at = y * width;
        if (row < 0) continue;
        if (this.isMissing[row]) this.paintMissing(at, y);
        else if (row === last) this.words.copyWithin(at + this.begin, at - width + this.begin, at - width + this.end);
        else this.paintRow(at, row);
        last = row;
      }
    }
    this.context.putImageData(this.image, 0, 0);
  }

  paintRow(at, row) {
    const {words, column, table, end, frame: {pixels, bits, part, stretch, full}} = this;
    const first = row * part.columns;
    if (bits === 32) {
      const steps = kSteps / (stretch.white - stretch.black);
      for (let x = this.begin; x < end; ++x) {
        const value = pixels[first + column[x]], step = (value - stretch.black) * steps;
        words[at + x] = value >= full ? kFull : table[Math.round(Math.min(kSteps, Math.max(0, step)))];
      }
      return;
    }
    for (let x = this.begin; x < end; ++x) words[at + x] = table[pixels[first + column[x]]];
  }

  paintMissing(at, y) {
    for (let x = this.begin; x < this.end; ++x) {
      this.words[at + x] = ((x + y) & 7) < 3 ? kStripe : kGap;
    }
  }
}
