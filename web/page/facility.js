// Spinlane's facility page: one card per instrument from the live channel (each message the
// summary of every instrument), one instrument's queue on a click, and "my samples" across every
// instrument. Texts from the instruments are set with textContent only, never as markup.
'use strict';

const entries = new Map(); // name -> entry (summary)
let selected = '';
let refreshTimer = null;

function element(tag, className, text) {
  const e = document.createElement(tag);
  if (className) e.className = className;
  if (text !== undefined) e.textContent = text;
  return e;
}

function badge(status) { return element('span', 'badge ' + statusClass(status), status); }

function progress(current) {
  if (!current || !current.started || !current.expectedEnd) return 0;
  const start = Date.parse(current.started);
  const end = Date.parse(current.expectedEnd);
  if (!(end > start)) return 0;
  return Math.min(100, Math.max(0, (Date.now() - start) / (end - start) * 100));
}

// What a card says of its run. An offline instrument is never shown running.
function stateText(entry) {
  if (!entry.online) return 'offline';
  const state = entry.instrument;
  if (!state) return 'unknown';
  return state.spinlane ? state.runState : 'Spinlane is not running';
}

function card(entry) {
  const state = entry.instrument;
  const box = element('article', 'card' + (entry.online ? '' : ' offline') +
                                 (entry.name === selected ? ' selected' : ''));
  box.dataset.instrument = entry.name;
  box.tabIndex = 0;
  box.appendChild(element('h2', '', entry.name));
  const shown = stateText(entry);
  box.appendChild(element('p', 'state state-' + shown.replace(/[^a-z]+/g, '-'), shown));
  if (!entry.online) {
    box.appendChild(element('p', 'heard', (entry.offline === 'will' ? 'Left the broker' : 'Silent') +
                                          ' · last heard ' + (localTime(entry.lastHeard) || 'never')));
  }
  if (state && state.current && entry.online) {
    const current = state.current;
    box.appendChild(element('p', 'current', number(current.number) + ' ' + current.sample + ' ' +
                                            current.experiment + ' · ' + current.user));
    const bar = element('div', 'bar');
    bar.setAttribute('role', 'progressbar');
    const fill = element('div', 'fill');
    fill.style.width = progress(current).toFixed(1) + '%';
    bar.appendChild(fill);
    box.appendChild(bar);
  }
  if (state) {
    box.appendChild(element('p', 'muted length', state.waiting + ' waiting of ' + state.queueLength +
                                                 ' in the queue'));
    if (state.queueEnd && entry.online)
      box.appendChild(element('p', 'muted end', 'Queue expected to end ' + localTime(state.queueEnd)));
  }
  if (entry.online)
    box.appendChild(element('p', 'muted heard', 'Last heard ' + localTime(entry.lastHeard)));
  box.addEventListener('click', () => select(entry.name));
  box.addEventListener('keydown', (e) => { if (e.key === 'Enter') select(entry.name); });
  return box;
}

function renderCards() {
  const names = [...entries.keys()].sort();
  const cards = names.map((name) => card(entries.get(name)));
  if (!cards.length) cards.push(element('p', '', 'No instrument has been heard yet.'));
  byId('cards').replaceChildren(...cards);
  byId('updated').textContent = localTime(new Date().toISOString());
}

function renderQueue(entry) {
  const section = byId('queueSection');
  if (!entry || !entry.instrument) { section.hidden = true; return; }
  section.hidden = false;
  byId('queueInstrument').textContent = entry.name + (entry.online ? '' : ' (offline)');
  const queue = entry.instrument.queue || [];
  const rows = queue.map((item) => {
    const row = document.createElement('tr');
    cell(row, number(item.number));
    cell(row, item.sample, 'sample');
    cell(row, item.experiment);
    cell(row, item.user, 'user');
    row.insertCell().appendChild(badge(item.status));
    cell(row, localTime(item.expectedStart), 'optional');
    cell(row, localTime(item.expectedEnd));
    return row;
  });
  byId('queue').tBodies[0].replaceChildren(...rows);
  byId('queueCount').textContent = '(' + queue.length + ')';
}

function getJson(path) {
  return fetch(path, { cache: 'no-store' }).then((r) => (r.ok ? r.json() : null));
}

function loadQueue() {
  if (!selected) { renderQueue(null); return; }
  getJson('/api/v1/facility/instruments/' + encodeURIComponent(selected))
    .then(renderQueue).catch(() => {});
}

function select(name) {
  selected = selected === name ? '' : name;
  renderCards();
  loadQueue();
}

function mine() { return byId('mine').value.trim(); }

function renderSamples(data) {
  const table = byId('samples');
  const items = (data && data.items) || [];
  table.hidden = !mine();
  const rows = items.map((item) => {
    const row = document.createElement('tr');
    cell(row, item.instrument + (item.online ? '' : ' (offline)'), 'instrument');
    cell(row, number(item.number));
    cell(row, item.sample, 'sample');
    cell(row, item.experiment);
    row.insertCell().appendChild(badge(item.status));
    cell(row, localTime(item.expectedStart), 'start');
    cell(row, localTime(item.expectedEnd), 'optional');
    return row;
  });
  table.tBodies[0].replaceChildren(...rows);
  byId('mineCount').textContent = mine() ? '(' + items.length + ')' : '';
}

function loadSamples() {
  if (!mine()) { renderSamples(null); return; }
  getJson('/api/v1/facility/samples/' + encodeURIComponent(mine())).then(renderSamples)
    .catch(() => {});
}

// Changes come often on a large facility: the queue and "my samples" are read again at most
// twice a second.
function refreshSoon() {
  if (refreshTimer) return;
  refreshTimer = setTimeout(() => { refreshTimer = null; loadQueue(); loadSamples(); }, 500);
}

function showBroker(broker) {
  byId('broker').hidden = broker.connected;
  byId('broker').textContent = 'The facility cannot hear the instruments: ' +
                               (broker.problem || 'the broker is not connected') + '.';
}

// Every message is the whole facility: one that missed others is in step all the same.
function take(message) {
  if (!message.facility) return;
  entries.clear();
  for (const entry of message.facility.instruments) entries.set(entry.name, entry);
  showBroker(message.facility.broker);
  document.body.dataset.seq = message.seq;
  renderCards();
  refreshSoon();
}

function start() {
  rememberMine(loadSamples);
  byId('closeQueue').addEventListener('click', () => select(selected));
  followLive(take);
  loadSamples();
  setInterval(renderCards, 5000); // progress bars and "last heard" move on
}

start();
