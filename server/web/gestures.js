// Mouse and fingers on the image, and the tool that they hold: "pan" moves the image, "measure" and
// "area" draw a box. Two fingers move and zoom with each tool; with Shift a drag is that of "area".

const kStill = {mouse: 4, pen: 8, touch: 12}; // pixels of the page that a click may move

const middleOf = ([a, b]) => ({clientX: (a.clientX + b.clientX) / 2, clientY: (a.clientY + b.clientY) / 2});
const between = ([a, b]) => Math.hypot(a.clientX - b.clientX, a.clientY - b.clientY);

export class Gestures {
  // onMove(event) of any pointer, null when the mouse has left; onClick(event, tool); onBox(tool, from, to) of events. `box` is the
  // element that shows a box while it is drawn.
  constructor(view, box, buttons, {onMove, onClick, onBox}) {
    const {canvas} = view;
    Object.assign(this, {view, canvas, box, buttons, onMove, onClick, onBox});
    this.pointers = new Map(); // that are down: their last events
    this.drag = null;          // of one of them: from, to, tool, isMoved
    this.pinch = null;         // of two: the pixel between them, how far apart they were, and the zoom then
    canvas.onpointerdown = event => this.down(event);
    canvas.onpointermove = event => this.move(event);
    canvas.onpointerup = event => this.up(event);
    canvas.onpointercancel = event => this.leave(event);
    canvas.onpointerleave = event => event.pointerType === 'touch' || this.onMove(null); // a finger that is lifted has pointed
    canvas.onwheel = event => {
      event.preventDefault();
      if (view.frame) view.setZoom(view.placing()[0] * (event.deltaY < 0 ? 1.25 : 0.8), event);
    };
    for (const button of buttons) button.onclick = () => this.hold(button.value);
    this.hold('pan');
  }

  hold(tool) {
    this.tool = tool;
    for (const button of this.buttons) button.setAttribute('aria-pressed', button.value === tool);
  }

  down(event) {
    if (!this.view.frame || (event.button !== 0 && event.pointerType === 'mouse')) return;
    this.onMove(event); // a finger touches at once
    this.pointers.set(event.pointerId, event);
    this.canvas.setPointerCapture(event.pointerId);
    const [first, second] = this.pointers.values();
    if (!second) {
      this.drag = {from: event, to: event, tool: event.shiftKey ? 'area' : this.tool};
      return;
    }
    this.cancel();
    const both = [first, second];
    this.pinch = {spot: this.view.pixelAt(middleOf(both)), apart: Math.max(1, between(both)),
                  zoom: this.view.placing()[0]};
  }

  move(event) {
    if (!this.view.frame) return;
    this.onMove(event);
    if (!this.pointers.has(event.pointerId)) return;
    this.pointers.set(event.pointerId, event);
    if (this.pinch) {
      const both = [...this.pointers.values()].slice(0, 2);
      this.view.hold(this.pinch.spot, this.pinch.zoom * between(both) / this.pinch.apart, middleOf(both));
    }
    if (!this.drag || (!this.drag.isMoved && this.isStill(event))) return;
    this.drag.isMoved = true;
    const [before, now] = [this.view.pixelAt(this.drag.to), this.view.pixelAt(event)];
    this.drag.to = event;
    if (this.drag.tool === 'pan') this.view.move(before[0] - now[0], before[1] - now[1]);
    this.showBox();
  }

  // Whether it is still where it went down, as a click's is.
  isStill(event) {
    return between([this.drag.from, event]) < kStill[event.pointerType];
  }

  up(event) {
    const drag = this.drag, isClick = drag && this.isStill(event);
    this.leave(event);
    if (!drag) return;
    if (isClick) this.onClick(event, drag.tool);
    else if (drag.tool !== 'pan') this.onBox(drag.tool, drag.from, event);
  }

  // A finger that is left of two does nothing more.
  leave(event) {
    this.pointers.delete(event.pointerId);
    this.pinch = null;
    this.cancel();
  }

  // Whether a box was being drawn; now it is not.
  cancel() {
    const isBox = Boolean(this.drag) && this.drag.tool !== 'pan';
    this.drag = null;
    this.showBox();
    return isBox;
  }

  showBox() {
    const isBox = this.drag && this.drag.tool !== 'pan';
    this.box.setAttribute('visibility', isBox ? 'visible' : 'hidden');
    if (!isBox) return;
    const {left, top} = this.canvas.getBoundingClientRect();
    const {from: a, to: b} = this.drag;
    this.box.setAttribute('x', Math.min(a.clientX, b.clientX) - left);
    this.box.setAttribute('y', Math.min(a.clientY, b.clientY) - top);
    this.box.setAttribute('width', Math.abs(a.clientX - b.clientX));
    this.box.setAttribute('height', Math.abs(a.clientY - b.clientY));
  }
}
