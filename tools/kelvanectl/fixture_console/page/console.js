// kelvanectl console: every fixture in a grid, one in detail. The operations and their
// parameters come from the console (GET /api/operations, kelvanectl's own command table); each
// button posts one to /api/op, and what the fixtures do comes back on the event stream: their
// state (connection, sensors, the move under way), every operation's result, the device's log.
// Every API request carries the token the console printed, which the page finds after '#'.
import { element, keepReading, lamp, lineChart, showTray, temperatureFloor, trayDrawing } from "./drawings.js";

const token = new URLSearchParams(location.hash.slice(1)).get("token") || "";
const fixtures = new Map();  // address -> {state, parts, history: [...], tec: {slot: {...}}, watching}
const logLength = 300;
const historyLength = 100;
const watchPause = 2000;  // ms between the end of one TEC reading and the next while watched
const moveGlide = 1000;  // ms the drawing takes to a move's target; the sensors tell the rest
const numberDefaults = { speed: 50, slot: 1, fan: 1, line: 1, state: 1 };
let operations = [];

const $ = (id) => document.getElementById(id);

function showProblem(text) {
  $("problem").textContent = text;
  $("problem").hidden = false;
}

async function api(path, body) {
  const init = { headers: { "X-Kelvane-Token": token } };
  if (body !== undefined) {
    init.method = "POST";
    init.headers["Content-Type"] = "application/json";
    init.body = JSON.stringify(body);
  }
  const reply = await fetch(path, init);
  return { status: reply.status, answer: await reply.json().catch(() => ({})) };
}

// The operation's words, as on kelvanectl's command line: "fan set" with [1, 60] is op "fan"
// and args ["set", 1, 60].
async function runOperation(address, name, values) {
  const [op, ...more] = name.split(" ");
  const fixture = fixtures.get(address);
  const { status, answer } = await api("/api/op", { fixture: address, op, args: [...more, ...values] });
  if (status !== 200) showResult(fixture, { ok: false, text: `${status} ${answer.error}` });
  return answer;
}

function showResult(fixture, answer) {
  const shown = fixture.parts.result;
  shown.classList.toggle("failed", !answer.ok);
  shown.textContent = answer.ok || typeof answer.result === "string" ? answer.text : answer.error || answer.text;
}

// ---- Position and state -------------------------------------------------------------------

function position(state) {
  if (!state.sensors) return { horizontal: "?", vertical: "?" };
  const [inward, outward, up, down] = state.sensors.split(";").map(Number);
  return {
    horizontal: inward === 1 ? "IN" : outward === 1 ? "OUT" : "between",
    vertical: up === 1 ? "UP" : down === 1 ? "DOWN" : "between",
  };
}

const dutPresent = (state) => state.dut === null || /on$/.test(state.dut);
const moveTarget = (state) => (state.moving ? state.moving.replace("tray-", "").toUpperCase() : null);

function connectionWords(state) {
  if (state.connected === null) return "connecting…";
  return state.connected ? "connected" : "unreachable: connect to try again";
}

function trayWords(state) {
  if (state.moving) return `moving ${moveTarget(state)}`;
  const { horizontal, vertical } = position(state);
  return state.sensors ? `${horizontal} ${vertical}` : "position unknown";
}

function renderState(fixture) {
  const { state, parts } = fixture;
  const place = position(state);
  const moving = state.moving ? { to: moveTarget(state), leftMs: moveGlide } : null;
  showTray(parts.drawing, { ...place, moving, dut: dutPresent(state) });
  const sensors = state.sensors ? state.sensors.split(";") : ["?", "?", "?", "?"];
  const lamps = ["IN", "OUT", "UP", "DOWN"].map((name, index) => lamp(`${name} ${sensors[index]}`, sensors[index] === "1"));
  lamps.push(lamp(`DUT ${state.dut ?? "?"}`, state.dut !== null && dutPresent(state)));
  parts.sensors.replaceChildren(...lamps);
  parts.link.textContent = connectionWords(state) + (state.busy ? ` · running ${state.busy}` : "");
  parts.polling.textContent = state.polling ? "Pause polling" : "Resume polling";
  parts.polling.setAttribute("aria-pressed", String(!state.polling));
  for (const button of parts.moveButtons) button.disabled = Boolean(state.moving);
  fixture.tile.summary.textContent = `${trayWords(state)} · ${connectionWords(state).split(":")[0]}`;
  fixture.tile.summary.classList.toggle("unreachable", state.connected === false);
}

// ---- Controls, made from the console's table of operations ---------------------------------

function parameterInput(parameter) {
  if (parameter.words) {
    const choice = element("select");
    choice.append(...parameter.words.map((word) => element("option", word)));
    return choice;
  }
  const input = element("input");
  input.type = parameter.kind === "number" ? "number" : "text";
  input.value = parameter.kind === "number" ? numberDefaults[parameter.name] ?? 1 : "GREEN";
  if (parameter.lowest !== undefined) input.min = parameter.lowest;
  if (parameter.name === "mode") input.setAttribute("list", "led-modes");
  return input;
}

// A button for the operation, named data-op="NAME", and an input for each of its parameters.
function operationControl(address, operation) {
  const button = element("button", operation.name);
  button.type = "button";
  button.dataset.op = operation.name;
  button.title = operation.help;
  const inputs = operation.parameters.map((parameter) => {
    const input = parameterInput(parameter);
    input.setAttribute("aria-label", `${operation.name}: ${parameter.help}`);
    input.title = parameter.help;
    return input;
  });
  const values = () => inputs.map((input, index) =>
    operation.parameters[index].kind === "number" ? Number(input.value) : input.value);
  button.addEventListener("click", async () => {
    if (operation.moves) button.disabled = true;  // until the state says the move ended
    await runOperation(address, operation.name, values());
  });
  return { button, inputs, values };
}

function buildControls(fixture, address) {
  const { parts } = fixture;
  parts.moveButtons = [];
  for (const operation of operations) {
    const control = operationControl(address, operation);
    if (operation.moves) {
      parts.moves.append(control.button);
      parts.moveButtons.push(control.button);
    } else if (operation.name === "tec") {
      buildTecControls(fixture, address, control);
    } else {
      const row = element("div", undefined, "operation");
      row.append(control.button, ...control.inputs);
      parts.operations.append(row);
    }
  }
  parts.polling.addEventListener("click", () =>
    api("/api/polling", { fixture: address, on: !fixture.state.polling }));
  parts.showPolls.addEventListener("change", () => renderLog(fixture));
}

function buildTecControls(fixture, address, read) {
  const watch = element("button", "Watch");
  watch.type = "button";
  watch.setAttribute("aria-pressed", "false");
  watch.title = "Read the slot again and again until pressed again";
  watch.addEventListener("click", async () => {
    fixture.watching = !fixture.watching;
    watch.setAttribute("aria-pressed", String(fixture.watching));
    while (fixture.watching) {
      await runOperation(address, "tec", read.values());
      await new Promise((resolve) => setTimeout(resolve, watchPause));
    }
  });
  fixture.parts.tec.append(read.button, ...read.inputs, watch);
  fixture.parts.floorNote.textContent = `(°C; dashed: the ${temperatureFloor} °C floor)`;
}

// ---- Results, TEC readings, history and log -----------------------------------------------

function rememberReading(fixture, command, reading) {
  const slot = command.split(" ")[1];
  const readings = (fixture.tec[slot] = fixture.tec[slot] || { sensors: [], pwm: [], current: [], last: null });
  keepReading(readings.sensors, reading.sensors);
  keepReading(readings.pwm, [reading.pwm]);
  keepReading(readings.current, [reading.current]);
  readings.last = reading;
  const charts = Object.entries(fixture.tec).flatMap(([number, kept]) => [
    lineChart(kept.sensors, { floor: temperatureFloor,
      caption: `Slot ${number}: ${kept.last.sensors.map((value) => value.toFixed(2)).join(" / ")} °C`,
      label: `slot ${number} temperatures ${kept.last.sensors.join(", ")} °C` }),
    lineChart(kept.pwm, { caption: `Slot ${number} PWM: ${kept.last.pwm.toFixed(2)} %`, label: `slot ${number} PWM` }),
    lineChart(kept.current, { caption: `Slot ${number} current: ${kept.last.current.toFixed(2)} A`,
      label: `slot ${number} current` }),
  ]);
  fixture.parts.tecCharts.replaceChildren(...charts);
}

// The same command again (a watched TEC slot, a button pressed twice) adds to its line.
function rememberResult(fixture, event) {
  const last = fixture.history[0];
  const line = { command: event.command, ok: event.ok, shown: event.ok ? event.text : event.error,
    seconds: event.seconds, at: new Date().toLocaleTimeString(), times: 1 };
  if (last && last.command === line.command && last.ok === line.ok) {
    line.times = last.times + 1;
    fixture.history[0] = line;
  } else {
    fixture.history.unshift(line);
    fixture.history.length = Math.min(fixture.history.length, historyLength);
  }
  fixture.parts.history.replaceChildren(...fixture.history.map((entry) => element("li",
    `${entry.at} ${entry.command}${entry.times > 1 ? ` (×${entry.times})` : ""} → ${entry.shown} (${entry.seconds.toFixed(2)} s)`,
    entry.ok ? "" : "failed")));
}

function renderLog(fixture) {
  const withPolls = fixture.parts.showPolls.checked;
  const shown = fixture.log.filter((entry) => withPolls || !entry.poll);
  fixture.parts.log.replaceChildren(...shown.slice(-logLength).reverse().map((entry) =>
    element("li", entry.line, entry.poll ? "poll" : "")));
}

function receive(event) {
  const fixture = fixtures.get(event.fixture);
  if (!fixture) return;
  if (event.type === "state") {
    fixture.state = event;
    renderState(fixture);
  } else if (event.type === "result") {
    showResult(fixture, event);
    rememberResult(fixture, event);
    if (event.op === "tec" && event.ok) rememberReading(fixture, event.command, event.result);
  } else if (event.type === "log") {
    fixture.log.push(event);
    if (fixture.log.length > logLength * 2) fixture.log.splice(0, logLength);
    if (!event.poll || fixture.parts.showPolls.checked) renderLog(fixture);
  }
}

// ---- Fixtures, grid and the event stream -----------------------------------------------------

function select(address) {
  for (const [each, fixture] of fixtures) {
    fixture.section.hidden = each !== address;
    fixture.tile.button.setAttribute("aria-current", String(each === address));
  }
}

function addFixture(state) {
  const address = state.fixture;
  const section = $("fixture-template").content.firstElementChild.cloneNode(true);
  section.dataset.fixture = address;
  const part = (name) => section.querySelector(`.${name}`);
  const parts = { result: part("result"), sensors: part("sensors"), moves: part("moves"), polling: part("polling"),
    link: part("link"), operations: part("operations"), tec: part("tec"), tecCharts: part("tec-charts"),
    floorNote: part("floor-note"), history: part("history"), log: part("log"), showPolls: part("show-polls") };
  part("title").textContent = `Fixture ${address}`;
  parts.drawing = trayDrawing();
  parts.drawing.svg.setAttribute("aria-label", `the tray of fixture ${address}`);
  part("drawing").replaceWith(parts.drawing.svg);

  const button = element("button", address, "tile");
  button.type = "button";
  button.dataset.open = address;
  const summary = element("small");
  button.append(summary);
  button.addEventListener("click", () => select(address));
  const item = element("li");
  item.append(button);
  $("grid").append(item);
  $("fixtures").append(section);

  const fixture = { state, section, parts, tile: { button, summary }, history: [], log: [], tec: {}, watching: false };
  fixtures.set(address, fixture);
  buildControls(fixture, address);
  renderState(fixture);
}

function setLive(live) {
  $("connection").textContent = live ? "live" : "reconnecting…";
  $("connection").classList.toggle("lost", !live);
}

// Server-Sent Events read with fetch, which can send the token (EventSource cannot).
async function follow() {
  for (;;) {
    try {
      const reply = await fetch("/api/events", { headers: { "X-Kelvane-Token": token } });
      if (!reply.ok) throw new Error(`the event stream answered ${reply.status}`);
      setLive(true);
      const reader = reply.body.pipeThrough(new TextDecoderStream()).getReader();
      let pending = "";
      for (;;) {
        const { value, done } = await reader.read();
        if (done) break;
        pending += value;
        for (let end = pending.indexOf("\n\n"); end >= 0; end = pending.indexOf("\n\n")) {
          const data = pending.slice(0, end).split("\n").filter((line) => line.startsWith("data: "))
            .map((line) => line.slice(6)).join("\n");
          pending = pending.slice(end + 2);
          if (data) receive(JSON.parse(data));
        }
      }
    } catch {
      // the console ended or dropped the stream: try again shortly
    }
    setLive(false);
    await new Promise((resolve) => setTimeout(resolve, 1000));
  }
}

async function start() {
  if (!token) {
    showProblem("This page needs the console's token: open the whole address kelvanectl console printed (…/#token=…).");
    return;
  }
  const listed = await api("/api/operations");
  const known = await api("/api/fixtures");
  if (listed.status !== 200 || known.status !== 200) {
    showProblem(`The console refused this page (${listed.status}): open the address it printed this time.`);
    return;
  }
  operations = listed.answer;
  for (const state of known.answer) addFixture(state);
  if (known.answer.length) select(known.answer[0].fixture);
  follow();
}

start();
