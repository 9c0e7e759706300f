// Where a frame lies on the canvas. A painter draws it: take(frame) and paint([scale, left, top]).
import {GraphicsPainter} from './graphics_painter.js';
import {SoftwarePainter} from './software_painter.js';

const within = zoom => Math.min(64 * Math.max(1, devicePixelRatio), Math.max(1 / 32, zoom));

export class View {
  // `painter`: "graphics" or "software"; else what is faster here.
  constructor(canvas, painter) {
    this.canvas = canvas;
    this.zoom = 0;          // canvas pixels for a pixel of the frame; 0: all of it
    this.centre = [0, 0];   // pixel of the frame in the middle of the canvas
    this.frame = null;
    this.painter = (painter !== 'software' && GraphicsPainter.on(canvas, painter === 'graphics')) ||
        new SoftwarePainter(canvas);
    this.painter.onRestored = () => this.frame && this.show(this.frame);
    new ResizeObserver(() => this.fit()).observe(canvas);
  }

  // A frame: columns, rows, bits, the part of it that is there (column, row, step, columns, rows),
  // its pixels (a typed array), missingRows (null: any), stretch, full.
  show(frame) {
    this.frame = frame;
    this.painter.take(frame);
    this.draw();
  }

  // Canvas pixels for a pixel, and where the frame's first pixel lies.
  placing() {
    const {columns, rows} = this.frame;
    const {width, height} = this.canvas;
    if (this.zoom === 0) {
      const scale = Math.min(width / columns, height / rows);
      return [scale, (width - columns * scale) / 2, (height - rows * scale) / 2];
    }
    return [this.zoom, Math.round(width / 2 - this.centre[0] * this.zoom),
            Math.round(height / 2 - this.centre[1] * this.zoom)];
  }

  // What the canvas can show of the frame, in its pixels, with some more around.
  part() {
    const {columns, rows} = this.frame;
    const [scale, left, top] = this.placing();
    const step = Math.max(1, Math.min(64, Math.floor(1 / scale)));
    const span = (first, size, most) => {
      const [from, to] = [-first / scale, (size - first) / scale];
      const margin = (to - from) / 8;
      const [begin, end] = [Math.floor((from - margin) / 64), Math.ceil((to + margin) / 64)].map(
          edge => Math.min(most, Math.max(0, edge * 64)));
      return [begin, end - begin];
    };
    const [across, down] = [span(left, this.canvas.width, columns), span(top, this.canvas.height, rows)];
    return {column: across[0], row: down[0], columns: across[1], rows: down[1], step};
  }

  // The pixels of the frame that are to be seen, maybe in part; null: none is.
  seen() {
    const {columns, rows} = this.frame;
    const [scale, left, top] = this.placing();
    const span = (first, size, most) => {
      const from = Math.max(0, Math.floor(-first / scale));
      return [from, Math.min(most, Math.ceil((size - first) / scale)) - from];
    };
    const [across, down] = [span(left, this.canvas.width, columns), span(top, this.canvas.height, rows)];
    if (across[1] <= 0 || down[1] <= 0) return null;
    return {column: across[0], row: down[0], columns: across[1], rows: down[1]};
  }

  // As many pixels as the screen has there. What is set is cleared, even to what it was.
  fit() {
    const [width, height] = [this.canvas.clientWidth, this.canvas.clientHeight].map(
        side => Math.round(side * devicePixelRatio));
    if (this.canvas.width === width && this.canvas.height === height) return;
    [this.canvas.width, this.canvas.height] = [width, height];
    this.draw();
  }

  draw() {
    if (!this.frame) return;
    this.painter.paint(this.placing());
    this.onDraw?.();
  }

  // Pixel of the frame under a place of the page; it may lie outside.
  pixelAt({clientX, clientY}) {
    const box = this.canvas.getBoundingClientRect();
    const [scale, left, top] = this.placing();
    return [((clientX - box.left) * devicePixelRatio - left) / scale,
            ((clientY - box.top) * devicePixelRatio - top) / scale];
  }

  setZoom(zoom, keep) {
    if (!this.frame) return;
    if (keep) return this.hold(this.pixelAt(keep), zoom, keep);
    this.zoom = zoom === 0 ? 0 : within(zoom);
    this.centre = [this.frame.columns / 2, this.frame.rows / 2];
    this.draw();
  }

  // Shows a pixel of the frame under a place of the page.
  hold(pixel, zoom, place) {
    this.zoom = within(zoom);
    this.centre = pixel;
    const now = this.pixelAt(place);
    this.centre = [2 * pixel[0] - now[0], 2 * pixel[1] - now[1]];
    this.draw();
  }

  move(columns, rows) {
    if (this.zoom === 0) {
      const [scale] = this.placing();
      this.zoom = scale;
      this.centre = [this.frame.columns / 2, this.frame.rows / 2];
    }
    this.centre = [this.centre[0] + columns, this.centre[1] + rows];
    this.draw();
  }
}
