// The simulator's live panel: every fixture in a grid, one in detail, kept current by the event
// stream; each control posts to /api/control exactly what a test script would send.
"use strict";

const fixtures = new Map();  // number -> {address, state, history: {slot: [[t1..t4], ...]}}
const historyLength = 60;
const temperatureFloor = 21.5;
const trayShift = { x: 110, y: 44 };  // how far the tray travels OUT->IN and UP->DOWN in the drawing
let selected = 1;
let journalAsked = 0;

const $ = (id) => document.getElementById(id);
const element = (tag, text, className) => {
  const made = document.createElement(tag);
  if (text !== undefined) made.textContent = text;
  if (className) made.className = className;
  return made;
};
const svgElement = (tag, attributes) => {
  const made = document.createElementNS("http://www.w3.org/2000/svg", tag);
  for (const [name, value] of Object.entries(attributes)) made.setAttribute(name, value);
  return made;
};

function remember(number, address, state) {
  const fixture = fixtures.get(number) || { address, history: {} };
  if (address) fixture.address = address;
  fixture.state = state;
  for (const [slot, tec] of Object.entries(state.tec || {})) {
    const history = (fixture.history[slot] = fixture.history[slot] || []);
    history.push(tec.temperatures);
    if (history.length > historyLength) history.shift();
  }
  fixtures.set(number, fixture);
}

function trayWords(tray) {
  if (tray.moving) return `moving to ${tray.moving.to}${tray.moving.stalled ? " (stalled)" : ""}`;
  return `${tray.horizontal} ${tray.vertical}`;
}

// Tiles are made once and updated in place, so an update never takes the keyboard focus away.
const tiles = new Map();  // number -> {tile, summary}
function renderGrid() {
  for (const [number, fixture] of fixtures) {
    if (!tiles.has(number)) {
      const tile = element("button", `Fixture ${number}`, "tile");
      tile.type = "button";
      tile.append(element("small", fixture.address));
      const summary = element("small");
      tile.append(summary);
      tile.addEventListener("click", () => select(number));
      const item = element("li");
      item.append(tile);
      $("grid").append(item);
      tiles.set(number, { tile, summary });
    }
    const { tile, summary } = tiles.get(number);
    tile.setAttribute("aria-current", String(number === selected));
    summary.textContent = `${trayWords(fixture.state.tray)} · DUT ${fixture.state.dut ? "in" : "out"}`;
  }
}

function lamp(label, on, extraClass) {
  return element("span", label, `lamp${on ? " on" : ""}${extraClass ? " " + extraClass : ""}`);
}

function renderTray(state) {
  const tray = state.tray;
  const target = tray.moving ? tray.moving.to : null;
  const horizontal = target === "IN" || target === "OUT" ? target : tray.horizontal;
  const vertical = target === "UP" || target === "DOWN" ? target : tray.vertical;
  const drawing = $("tray");
  const left = tray.moving && !tray.moving.stalled ? tray.moving.duration_ms - tray.moving.elapsed_ms : 0;
  drawing.style.transitionDuration = `${Math.max(left, 0)}ms`;
  drawing.style.transform =
    `translate(${horizontal === "IN" ? trayShift.x : 0}px, ${vertical === "DOWN" ? trayShift.y : 0}px)`;
  drawing.dataset.state = tray.moving ? `moving ${tray.moving.to}` : `${tray.horizontal} ${tray.vertical}`;
  $("dut-shape").classList.toggle("absent", !state.dut);
  $("tray-text").textContent = `Tray ${trayWords(tray)}${tray.stall ? `; moves to ${tray.stall} stall` : ""}`;
  const sensors = ["in", "out", "up", "down"].map((name) =>
    lamp(`${name.toUpperCase()} ${state.sensors[name]}`, Number(state.sensors[name]) === 1,
         name in tray.stuck ? "stuck" : ""));
  sensors.push(lamp(`DUT ${state.dut ? "present" : "absent"}`, state.dut));
  $("sensors").replaceChildren(...sensors);
  $("lock").replaceChildren(lamp(`magnet lock ${state.lock}`, state.lock === "on"));
  $("dut-toggle").textContent = state.dut ? "Remove DUT" : "Insert DUT";
}

function renderLedsFansIo(state) {
  const leds = Object.entries(state.leds).map(([target, led]) => {
    const shown = lamp(`${target} ${led.mode}${led.blink ? " (blinking)" : ""}`, false, led.blink ? "blink" : "");
    shown.style.setProperty("--lamp", CSS.supports("color", led.mode) ? led.mode.toLowerCase() : "#c8ced8");
    return shown;
  });
  $("leds").replaceChildren(...(leds.length ? leds : [element("span", "no LED set")]));
  const pairs = (list, values, name) => {
    const rows = Object.entries(values).flatMap(([key, value]) => [element("dt", `${name} ${key}`), element("dd", String(value))]);
    $(list).replaceChildren(...(rows.length ? rows : [element("dt", `no ${name} set`)]));
  };
  pairs("fans", state.fans, "fan");
  pairs("io", state.io, "IO line");
}

function chart(slot, tec, history) {
  const width = 220, height = 90;
  const readings = history.flat().concat(temperatureFloor);
  const low = Math.min(...readings) - 0.5, high = Math.max(...readings) + 0.5;
  const y = (celsius) => (height - (celsius - low) / (high - low) * height).toFixed(1);
  const x = (index) => (index * width / (historyLength - 1)).toFixed(1);
  const svg = svgElement("svg", { viewBox: `0 0 ${width} ${height}`, role: "img",
    "aria-label": `slot ${slot} temperatures ${tec.temperatures.join(", ")} °C` });
  svg.append(svgElement("rect", { x: 0, y: 0, width, height }));
  svg.append(svgElement("line", { class: "floor", x1: 0, x2: width, y1: y(temperatureFloor), y2: y(temperatureFloor) }));
  for (let sensor = 0; sensor < 4; sensor++) {
    const points = history.map((reading, index) => `${x(index)},${y(reading[sensor])}`).join(" ");
    svg.append(svgElement("polyline", { class: `s${sensor + 1}`, points }));
  }
  const figure = element("figure", undefined, "chart");
  const faults = tec.faults.length ? ` · faults: ${tec.faults.map((fault) => fault.kind).join(", ")}` : "";
  figure.append(svg, element("figcaption", `Slot ${slot}: ${tec.temperatures.join(" / ")}${faults}`));
  return figure;
}

function renderDetail() {
  const fixture = fixtures.get(selected);
  if (!fixture) return;
  const state = fixture.state;
  $("detail-title").textContent = `Fixture ${selected} · ${fixture.address}`;
  renderTray(state);
  renderLedsFansIo(state);
  $("tec").replaceChildren(...Object.entries(state.tec).map(([slot, tec]) => chart(slot, tec, fixture.history[slot])));
  const slots = Object.keys(state.tec);
  if ($("slot-choice").options.length !== slots.length) {
    $("slot-choice").replaceChildren(...slots.map((slot) => element("option", slot)));
  }
  refreshJournal();
}

async function refreshJournal() {
  const now = Date.now();
  if (now - journalAsked < 1000) return;
  journalAsked = now;
  const reply = await fetch(`/api/journal?fixture=${selected}&last=30`);
  if (!reply.ok) return;
  const entries = await reply.json();
  $("journal").replaceChildren(...entries.reverse().map((entry) =>
    element("li", `${entry.method} ${JSON.stringify(entry.params)}${entry.script ? ` (script: ${entry.script})` : ""}`)));
}

function select(number) {
  selected = number;
  journalAsked = 0;
  renderGrid();
  renderDetail();
}

async function control(method, params) {
  const body = { fixture: selected, method, params };
  const shown = $("last-action");
  const reply = await fetch("/api/control", {
    method: "POST", headers: { "Content-Type": "application/json" }, body: JSON.stringify(body) });
  const answer = await reply.json();
  shown.classList.toggle("failed", !reply.ok);
  shown.textContent = `fixture ${selected}: ${method} ${JSON.stringify(params ?? [])} → ` +
    (reply.ok ? JSON.stringify(answer.result) : `${reply.status} ${answer.error}`);
}

function withTecFault(kind) {
  const state = fixtures.get(selected).state;
  const faults = Object.values(state.tec).flatMap((tec) => tec.faults);
  return { tec_faults: faults.concat({ kind, slot: Number($("slot-choice").value) }) };
}

function wireControls() {
  const state = () => fixtures.get(selected).state;
  const sensor = () => $("sensor-choice").value;
  const actions = {
    "dut-toggle": () => control("sim.set", { dut: !state().dut }),
    "stick-sensor": () => control("sim.set", { stuck: { [sensor()]: state().sensors[sensor()] } }),
    "stall-move": () => control("sim.set", { stall: sensor() }),
    "free-tray": () => control("sim.set", { stuck: null, stall: null }),
    "tec-low": () => control("sim.set", withTecFault("low_reading")),
    "tec-missing": () => control("sim.set", withTecFault("no_answer")),
    "tec-clear": () => control("sim.set", { tec_faults: null }),
    "reset": () => control("sim.reset"),
  };
  for (const [id, action] of Object.entries(actions)) $(id).addEventListener("click", action);
}

async function start() {
  wireControls();
  const reply = await fetch("/api/fixtures");
  for (const fixture of await reply.json()) remember(fixture.fixture, fixture.address, fixture.state);
  renderGrid();
  renderDetail();
  const events = new EventSource("/api/events");
  events.onopen = () => { $("connection").textContent = "live"; $("connection").classList.remove("lost"); };
  events.onerror = () => { $("connection").textContent = "reconnecting…"; $("connection").classList.add("lost"); };
  events.onmessage = (message) => {
    const news = JSON.parse(message.data);
    remember(news.fixture, null, news.state);
    renderGrid();
    if (news.fixture === selected) renderDetail();
  };
}

start();
