// What the simulator's panel and the fixture console draw alike, from this one place: the tray
// drawing, the line charts, the status lamps, and the TEC temperature floor they are drawn with.
// Built into both binaries; the pages import it as a module.

// °C: a TEC sensor below it fails the library's sampling check; the charts show it dashed.
export const temperatureFloor = 21.5;
// Readings a chart keeps, oldest dropped first.
export const chartLength = 60;

export const element = (tag, text, className) => {
  const made = document.createElement(tag);
  if (text !== undefined) made.textContent = text;
  if (className) made.className = className;
  return made;
};

export const svgElement = (tag, attributes, text) => {
  const made = document.createElementNS("http://www.w3.org/2000/svg", tag);
  for (const [name, value] of Object.entries(attributes)) made.setAttribute(name, value);
  if (text !== undefined) made.textContent = text;
  return made;
};

export function lamp(label, on, extraClass) {
  return element("span", label, `lamp${on ? " on" : ""}${extraClass ? " " + extraClass : ""}`);
}

// How far the tray travels OUT->IN and UP->DOWN in the drawing.
const trayShift = { x: 110, y: 44 };

// A fixture's tray from the side: the frame, the rail, the tray and the DUT on it. Returns the
// svg, the tray's group (whose data-state names its position) and the DUT's shape.
export function trayDrawing() {
  const svg = svgElement("svg", { viewBox: "0 0 220 120", role: "img", class: "tray-drawing" });
  svg.append(svgElement("rect", { class: "frame", x: 4, y: 4, width: 212, height: 112, rx: 6 }),
    svgElement("text", { class: "mark", x: 12, y: 17 }, "OUT · UP"),
    svgElement("text", { class: "mark", x: 160, y: 17 }, "IN"),
    svgElement("text", { class: "mark", x: 12, y: 112 }, "DOWN"),
    svgElement("line", { class: "rail", x1: 20, y1: 42, x2: 200, y2: 42 }));
  const tray = svgElement("g", { class: "tray-group", "data-state": "" });
  const dut = svgElement("rect", { class: "dut", x: 38, y: 30, width: 34, height: 24, rx: 2 });
  tray.append(svgElement("rect", { class: "tray", x: 20, y: 22, width: 70, height: 40, rx: 4 }), dut);
  svg.append(tray);
  return { svg, tray, dut };
}

// Places the tray: `horizontal` "IN" or "OUT", `vertical` "UP" or "DOWN" (anything else: half
// way, a tray between its sensors); while `moving` ({to, leftMs}) it glides to `to` in leftMs.
export function showTray(drawing, { horizontal, vertical, moving, dut }) {
  const target = moving ? moving.to : null;
  const across = target === "IN" || target === "OUT" ? target : horizontal;
  const down = target === "UP" || target === "DOWN" ? target : vertical;
  const share = (position, far, near) => (position === far ? 1 : position === near ? 0 : 0.5);
  drawing.tray.style.transitionDuration = `${Math.max(moving ? moving.leftMs : 0, 0)}ms`;
  drawing.tray.style.transform = `translate(${share(across, "IN", "OUT") * trayShift.x}px, ` +
    `${share(down, "DOWN", "UP") * trayShift.y}px)`;
  drawing.tray.dataset.state = moving ? `moving ${moving.to}` : `${horizontal} ${vertical}`;
  drawing.dut.classList.toggle("absent", !dut);
}

// A line chart of `rows`, one reading each (a value per line, drawn in the classes s1, s2, ...),
// the last chartLength of them across its width, the newest on the right, scaled to fit them and the dashed `floor` if
// one is given; under it `caption`, and `label` for screen readers.
export function lineChart(rows, { caption, label, floor = null }) {
  const width = 220, height = 90;
  const values = rows.flat().concat(floor === null ? [] : [floor]);
  const low = (values.length ? Math.min(...values) : 0) - 0.5;
  const high = (values.length ? Math.max(...values) : 0) + 0.5;
  const y = (value) => (height - (value - low) / (high - low) * height).toFixed(1);
  // The newest reading at the right edge, a little inside it so that its mark shows whole.
  const margin = 3, step = (width - 2 * margin) / (chartLength - 1);
  const x = (index) => (margin + (chartLength - rows.length + index) * step).toFixed(1);
  const svg = svgElement("svg", { viewBox: `0 0 ${width} ${height}`, role: "img", "aria-label": label });
  svg.append(svgElement("rect", { x: 0, y: 0, width, height }));
  if (floor !== null) svg.append(svgElement("line", { class: "floor", x1: 0, x2: width, y1: y(floor), y2: y(floor) }));
  const lines = rows.length ? rows[0].length : 0;
  for (let line = 0; line < lines; line++) {
    const points = rows.map((reading, index) => `${x(index)},${y(reading[line])}`).join(" ");
    svg.append(svgElement("polyline", { class: `s${line + 1}`, points }));
    // The newest reading marked, so that even the first one shows.
    const newest = rows.length - 1;
    svg.append(svgElement("circle", { class: `s${line + 1}`, cx: x(newest), cy: y(rows[newest][line]), r: 2 }));
  }
  const figure = element("figure", undefined, "chart");
  figure.append(svg, element("figcaption", caption));
  return figure;
}

// Appends `row` to `rows`, keeping the last chartLength.
export function keepReading(rows, row) {
  rows.push(row);
  if (rows.length > chartLength) rows.shift();
  return rows;
}
