'use strict';
// The viewer's page: the parameter tree, the live image with a pixel
// read-out, histogram, lookup tables and trigger, kept current by the
// server's event stream.

const $ = (id) => document.getElementById(id);
const widgets = new Map();   // parameter name -> {row, input, error, p}
let treeShape = '';          // names and limits of the tree as built
let stats = { acquiring: false, delivered: 0 };

// Only in software trigger mode does the pulse button make sense, but it
// stays usable: the applet says why a pulse was refused.
const TRIGGER_PANEL = ['FG_AREATRIGGERMODE', 'FG_TRIGGERSTATE', 'FG_TRIGGER_FRAMESPERSECOND', 'FG_TRIGGERQUEUE_MODE'];

async function api(method, path, body) {
  const init = { method, headers: {} };
  if (body !== undefined) {
    init.headers['Content-Type'] = 'application/json';
    init.body = JSON.stringify(body);
  }
  const res = await fetch(path, init);
  const type = res.headers.get('Content-Type') || '';
  const data = type.startsWith('application/json') ? await res.json() : await res.text();
  return { ok: res.ok, status: res.status, data };
}

function message(text) {
  $('message').textContent = text;
}

// --- Parameters ---------------------------------------------------------

function valueText(p) {
  if (p.value === undefined) return `${p.elements} elements (see the curves)`;
  if (Array.isArray(p.value)) return p.value.join(', ');
  return p.value === null ? '' : String(p.value);
}

function makeInput(p) {
  if (p.entries && p.writable) {
    const select = document.createElement('select');
    for (const e of p.entries) {
      const option = document.createElement('option');
      option.value = e.symbol || String(e.value);
      option.textContent = e.display_name && e.display_name !== e.symbol ? `${e.display_name} (${e.symbol})` : option.value;
      select.append(option);
    }
    return select;
  }
  const input = document.createElement('input');
  // Strings name files on the server and fields are long: both shown only.
  const editable = p.writable && p.type !== 'string' && typeof p.value === 'number';
  input.type = editable ? 'number' : 'text';
  input.readOnly = !editable;
  return input;
}

function applyLimits(w) {
  const { input, p } = w;
  if (input.type === 'number') {
    if (p.minimum !== undefined) { input.min = p.minimum; input.max = p.maximum; }
    input.step = p.step > 0 ? p.step : 'any';
    input.title = p.minimum !== undefined ? `${p.minimum} .. ${p.maximum}${p.step > 0 ? ' step ' + p.step : ''}` : '';
  }
}

function showValue(w) {
  if (document.activeElement === w.input) return;
  w.input.value = w.p.entries && w.p.writable ? String(w.p.value) : valueText(w.p);
}

async function write(w) {
  const p = w.p;
  const raw = w.input.value;
  const value = w.input.type === 'number' ? Number(raw) : raw;
  if (w.input.type === 'number' && (raw.trim() === '' || !Number.isFinite(value))) {
    w.error.textContent = 'not a number';
    return;
  }
  // Answers may come back out of order: only the newest write of a field
  // speaks for it, so an earlier success cannot wipe a later refusal.
  const seq = (w.writes = (w.writes || 0) + 1);
  const r = await api('PUT', `/api/params/${encodeURIComponent(p.name)}`, { value });
  if (seq !== w.writes) return;
  const answer = r.data;
  if (r.ok) {
    w.error.textContent = '';
    w.p = answer;
  } else {
    const text = answer.error || `refused (${r.status})`;
    w.error.textContent = answer.code === undefined || text.includes(String(answer.code)) ? text : `error ${answer.code} (${answer.meaning}): ${text}`;
    if (answer.parameter) w.p = answer.parameter;
  }
  w.input.blur();
  showValue(w);
  syncTwins(w);
}

// A parameter shown twice (tree and trigger panel) shows one value.
function syncTwins(w) {
  for (const twin of twins.get(w.p.name) || []) {
    if (twin === w) continue;
    twin.p = w.p;
    twin.error.textContent = w.error.textContent;
    showValue(twin);
  }
}
const twins = new Map();

function buildRow(p) {
  const row = document.createElement('div');
  row.className = 'param' + (p.writable ? '' : ' readonly');
  row.dataset.name = p.name;
  const label = document.createElement('label');
  label.textContent = p.display_name || p.name;
  label.title = `${p.name} (${p.type}${p.changeable ? ', changeable while acquiring' : ''})`;
  const cell = document.createElement('span');
  const input = makeInput(p);
  input.name = p.name;
  input.setAttribute('aria-label', p.display_name || p.name);
  cell.append(input);
  if (p.unit) {
    const unit = document.createElement('span');
    unit.className = 'unit';
    unit.textContent = ' ' + p.unit;
    cell.append(unit);
  }
  const error = document.createElement('div');
  error.className = 'error';
  row.append(label, cell, error);
  const w = { row, input, error, p };
  applyLimits(w);
  showValue(w);
  if (p.writable && !input.readOnly) input.addEventListener('change', () => write(w));
  if (!twins.has(p.name)) twins.set(p.name, []);
  twins.get(p.name).push(w);
  return w;
}

function shapeOf(categories) {
  return JSON.stringify(categories.map((c) => [c.name, c.parameters.map((p) => [p.name, p.minimum, p.maximum, p.step, p.writable])]));
}

function renderTree(categories) {
  const shape = shapeOf(categories);
  if (shape === treeShape) {
    // Same parameters and limits: values only, so a field being edited stays.
    for (const c of categories) for (const p of c.parameters) for (const w of twins.get(p.name) || []) {
      w.p = p;
      showValue(w);
    }
    return;
  }
  treeShape = shape;
  // A refusal shown beside a field stays when new limits rebuild the tree.
  const refusals = new Map([...widgets].map(([name, w]) => [name, w.error.textContent]));
  const open = new Set([...document.querySelectorAll('#tree details[open]')].map((d) => d.dataset.name));
  const first = widgets.size === 0;
  widgets.clear();
  twins.clear();
  const tree = $('tree');
  tree.replaceChildren();
  for (const c of categories) {
    const details = document.createElement('details');
    details.dataset.name = c.name;
    details.open = first || open.has(c.name);
    const summary = document.createElement('summary');
    summary.textContent = `${c.name} (${c.parameters.length})`;
    details.append(summary);
    for (const p of c.parameters) {
      const w = buildRow(p);
      w.error.textContent = refusals.get(p.name) || '';
      widgets.set(p.name, w);
      details.append(w.row);
    }
    tree.append(details);
  }
  const panel = $('trigger');
  panel.replaceChildren();
  for (const c of categories) for (const p of c.parameters) if (TRIGGER_PANEL.includes(p.name)) panel.append(buildRow(p).row);
  applyFilter();
}

function applyFilter() {
  const f = $('filter').value.trim().toLowerCase();
  for (const details of document.querySelectorAll('#tree details')) {
    let shown = 0;
    for (const row of details.querySelectorAll('.param')) {
      const hit = !f || row.dataset.name.toLowerCase().includes(f) || row.textContent.toLowerCase().includes(f);
      row.hidden = !hit;
      if (hit) ++shown;
    }
    details.hidden = shown === 0;
    if (f && shown) details.open = true;
  }
}

// One load at a time; a change during a load loads again after it, so the
// last answer is never older than the last change.
let loading = null;
let again = false;
async function loadParameters() {
  if (loading) {
    again = true;
    return loading;
  }
  loading = (async () => {
    do {
      again = false;
      const r = await api('GET', '/api/params');
      if (r.ok) renderTree(r.data.categories);
      await loadLut();
    } while (again);
  })().finally(() => { loading = null; });
  return loading;
}

// --- Curves -------------------------------------------------------------

const COLOURS = ['#ff5050', '#50e050', '#5090ff'];

function drawCurves(canvas, curves, top) {
  const g = canvas.getContext('2d');
  g.fillStyle = '#1c1c1c';
  g.fillRect(0, 0, canvas.width, canvas.height);
  g.globalCompositeOperation = 'lighter';
  curves.forEach((values, k) => {
    g.strokeStyle = COLOURS[k];
    g.beginPath();
    values.forEach((v, i) => {
      const x = (i / Math.max(1, values.length - 1)) * (canvas.width - 1);
      const y = canvas.height - 1 - (Math.min(v, top) / top) * (canvas.height - 2);
      if (i === 0) g.moveTo(x, y); else g.lineTo(x, y);
    });
    g.stroke();
  });
  g.globalCompositeOperation = 'source-over';
}

async function loadLut() {
  const r = await api('GET', '/api/lut');
  if (r.ok) drawCurves($('lut'), [r.data.red, r.data.green, r.data.blue], r.data.maximum || 4095);
}

let histogramBusy = false;
async function loadHistogram() {
  if (histogramBusy || stats.delivered === 0) return;
  histogramBusy = true;
  try {
    const r = await api('GET', '/api/histogram');
    if (!r.ok) return;
    const h = r.data;
    // The tallest bin but the two ends, which clipping piles up.
    const inner = [h.red, h.green, h.blue].flatMap((b) => b.slice(1, 255));
    const top = Math.max(1, ...inner);
    drawCurves($('histogram'), [h.red, h.green, h.blue], top);
  } finally {
    histogramBusy = false;
  }
}

// --- Live image ---------------------------------------------------------

function setZoom(mode) {
  $('frame').className = mode;
}

let readoutAt = 0;
let readoutTimer = null;
function readout(event) {
  const img = $('live');
  if (!img.naturalWidth) return;
  const x = Math.floor((event.offsetX / img.clientWidth) * img.naturalWidth);
  const y = Math.floor((event.offsetY / img.clientHeight) * img.naturalHeight);
  if (x < 0 || y < 0 || x >= img.naturalWidth || y >= img.naturalHeight) return;
  clearTimeout(readoutTimer);
  const wait = Math.max(0, readoutAt + 80 - Date.now());
  readoutTimer = setTimeout(async () => {
    readoutAt = Date.now();
    const r = await api('GET', `/api/pixel?x=${x}&y=${y}`);
    if (r.ok) $('readout').textContent = `x ${x}  y ${y}  R ${r.data.rgb[0]}  G ${r.data.rgb[1]}  B ${r.data.rgb[2]}  (${r.data.significant === r.data.bits ? r.data.bits + ' bit' : r.data.significant + ' bit in ' + r.data.bits})`;
  }, wait);
}

// --- Acquisition and events ----------------------------------------------

function showStats(s) {
  stats = s;
  $('run').textContent = s.acquiring ? 'Stop' : 'Start';
  $('fps').textContent = s.fps.toFixed(1);
  $('delivered').textContent = s.delivered;
  $('lost').textContent = s.lost;
  $('fill').textContent = s.fill_level;
  $('overflow').hidden = !s.overflow;
  $('problem').textContent = s.problem ? `no frames: ${s.problem}` : '';
  if (s.acquiring) loadHistogram();
}

async function toggleRun() {
  const r = await api('POST', '/api/acquisition', { running: !stats.acquiring });
  if (r.ok) showStats(r.data); else message(r.data.error || 'refused');
}

async function pulse() {
  const r = await api('POST', '/api/trigger', { pulses: 1 });
  $('pulse-result').textContent = r.ok ? `sent; ${r.data.counted} counted` : `error ${r.data.code} (${r.data.meaning}): ${r.data.error}`;
}

async function uploadConfig(file) {
  const text = await file.text();
  const r = await api('PUT', '/api/config', { text });
  if (r.ok) {
    const notes = r.data.warnings.map((w) => w.message);
    if (r.data.ignored.length) notes.push(`file names left out: ${r.data.ignored.join(', ')}`);
    message(`configuration ${file.name} loaded${notes.length ? '\n' + notes.join('\n') : ''}`);
  } else {
    message(r.data.error || 'refused');
  }
  $('config-upload').value = '';
  await loadParameters();
}

function connect() {
  const events = new EventSource('/api/events');
  events.addEventListener('hello', () => {
    $('connection').textContent = 'live';
    loadParameters();
  });
  events.addEventListener('change', (e) => {
    const change = JSON.parse(e.data);
    if (change.type !== 'acquisition') loadParameters();
  });
  events.addEventListener('stats', (e) => showStats(JSON.parse(e.data)));
  events.onerror = () => { $('connection').textContent = 'reconnecting'; };
}

async function start() {
  const info = await api('GET', '/api/info');
  if (info.ok) {
    $('applet').textContent = `${info.data.applet} ${info.data.version}`;
    document.title = `${info.data.applet} viewer`;
  }
  await loadParameters();
  const s = await api('GET', '/api/acquisition');
  if (s.ok) showStats(s.data);
  $('run').addEventListener('click', toggleRun);
  $('pulse').addEventListener('click', pulse);
  $('filter').addEventListener('input', applyFilter);
  $('config-upload').addEventListener('change', (e) => { if (e.target.files[0]) uploadConfig(e.target.files[0]); });
  for (const r of document.querySelectorAll('input[name=zoom]')) r.addEventListener('change', () => setZoom(r.value));
  $('live').addEventListener('mousemove', readout);
  connect();
  document.body.dataset.ready = 'true';
}

start();
