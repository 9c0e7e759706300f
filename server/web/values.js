// Writes the values of a frame's pixels into them, where these are large enough to read them.
import {levelOf} from './software_painter.js';

const kLeast = 7.5, kMost = 13;    // height of the digits, in pixels of the page
const kDigit = 0.65, kRoom = 0.8;  // width of a digit for that height; share of a pixel that they have
const kBright = 0.5;               // on what is drawn brighter than that they are dark

// Which of `most` pixels in a row from one on lie between two edges of the canvas: [begin, end].
const between = (first, scale, size, begin, most) => [
  Math.max(begin, Math.floor(-first / scale)),
  Math.min(begin + most, Math.ceil((size - first) / scale)),
];

// What is to be written of a frame, as the view shows it, that is placed so, on a canvas of that size:
// the height of its digits, and a list of [text, x, y, isDark] of their middles, in pixels of the canvas.
// What stands in a row that did not come is no value. Null: there is no room for them.
function valuesIn({part, pixels, missingRows, stretch, full}, [scale, left, top], {width, height}, ratio) {
  if (part.step > 1 || scale < kLeast * ratio) return null;
  const [x0, x1] = between(left, scale, width, part.column, part.columns);
  const [y0, y1] = between(top, scale, height, part.row, part.rows);
  const texts = [];
  let longest = 1;
  for (let y = y0; y < y1; ++y) {
    if (missingRows?.includes(y) ?? true) continue;
    for (let x = x0; x < x1; ++x) {
      const value = pixels[(y - part.row) * part.columns + x - part.column];
      const text = String(value);
      longest = Math.max(longest, text.length);
      texts.push([text, left + (x + 0.5) * scale, top + (y + 0.5) * scale, value < full && levelOf(value, stretch) > kBright]);
    }
  }
  const digits = Math.min(kMost * ratio, scale / 2, scale * kRoom / (kDigit * longest));
  return digits < kLeast * ratio || texts.length === 0 ? null : {digits, texts};
}

// Those of a frame on a canvas of their own above it; what stood there goes.
export function writeValues(canvas, frame, placing, {width, height}) {
  const found = valuesIn(frame, placing, {width, height}, devicePixelRatio);
  canvas.hidden = !found;
  if (!found) return;
  [canvas.width, canvas.height] = [width, height]; // clears it
  const context = canvas.getContext('2d');
  Object.assign(context, {font: `${found.digits}px system-ui, sans-serif`, textAlign: 'center', textBaseline: 'middle'});
  for (const [text, x, y, isDark] of found.texts) {
    context.fillStyle = isDark ? '#000' : '#fff';
    context.fillText(text, x, y);
  }
}
