// The simulator's live panel: every fixture in a grid, one in detail, kept current by the event
// stream; each control posts to /api/control exactly what a test script would send. The drawings
// are the ones the fixture console shows too (drawings.js).
import { element, keepReading, lamp, lineChart, showTray, temperatureFloor, trayDrawing } from "./drawings.js";

const fixtures = new Map();  // number -> {address, state, history: {slot: [[t1..t4], ...]}}
let selected = 1;
let journalAsked = 0;

const $ = (id) => document.getElementById(id);
const drawing = trayDrawing();
drawing.svg.setAttribute("aria-labelledby", "tray-text");
drawing.tray.id = "tray";
$("tray-drawing").replaceWith(drawing.svg);

function remember(number, address, state) {
  const fixture = fixtures.get(number) || { address, history: {} };
  if (address) fixture.address = address;
  fixture.state = state;
  for (const [slot, tec] of Object.entries(state.tec || {})) {
    keepReading((fixture.history[slot] = fixture.history[slot] || []), tec.temperatures);
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

function renderTray(state) {
  const tray = state.tray;
  const moving = tray.moving &&
    { to: tray.moving.to, leftMs: tray.moving.stalled ? 0 : tray.moving.duration_ms - tray.moving.elapsed_ms };
  showTray(drawing, { horizontal: tray.horizontal, vertical: tray.vertical, moving, dut: state.dut });
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
  const faults = tec.faults.length ? ` · faults: ${tec.faults.map((fault) => fault.kind).join(", ")}` : "";
  return lineChart(history, { floor: temperatureFloor, caption: `Slot ${slot}: ${tec.temperatures.join(" / ")}${faults}`,
    label: `slot ${slot} temperatures ${tec.temperatures.join(", ")} °C` });
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
