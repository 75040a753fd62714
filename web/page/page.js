// Spinlane's instrument page: the state from /api/v1/instrument, then every change from the live
// channel. Texts from the queue are set with textContent only, never as markup.
'use strict';

let latest = null;

function setText(id, text) { byId(id).textContent = text; }

function mine() { return byId('mine').value.trim().toLowerCase(); }

// The likely time and the range it falls in four times in five: the page shows the range where
// it has room (page.css), the likely time where not.
function rangedCell(row, likely, earliest, latest, className) {
  const td = cell(row, '', className);
  const time = localTime(likely);
  const low = localTime(earliest);
  const high = localTime(latest);
  if (time && low && high && (low !== time || high !== time)) {
    const range = document.createElement('span');
    range.className = 'range';
    range.textContent = low + '-' + high;
    range.title = 'likely ' + time + '; four times in five between these';
    td.appendChild(range);
  }
  const one = document.createElement('span');
  one.className = 'likely';
  one.textContent = time;
  td.appendChild(one);
}

function renderQueue(data) {
  const body = document.querySelector('#queue tbody');
  const filter = mine();
  const rows = [];
  let shown = 0;
  for (const item of data.queue) {
    if (filter && item.user.toLowerCase() !== filter) continue;
    const row = document.createElement('tr');
    row.dataset.number = item.number;
    if (data.current && data.current.number === item.number) row.className = 'current';
    cell(row, number(item.number));
    cell(row, item.position, 'optional');
    cell(row, item.sample, 'sample');
    cell(row, item.experiment, 'wrap');
    cell(row, item.user, 'user');
    const badge = document.createElement('span');
    badge.className = 'badge ' + statusClass(item.status);
    badge.textContent = item.status;
    const status = row.insertCell();
    status.className = 'status';
    status.appendChild(badge);
    rangedCell(row, item.expectedStart, item.earliestStart, item.latestStart, 'optional');
    if (item.longerThanAnyRun) cell(row, 'longer than any past run');
    else rangedCell(row, item.expectedEnd, item.earliestEnd, item.latestEnd);
    rows.push(row);
    ++shown;
  }
  body.replaceChildren(...rows);
  setText('queueCount', filter ? '(' + shown + ' of ' + data.queue.length + ')'
                               : '(' + data.queue.length + ')');
  byId('empty').hidden = data.queue.length !== 0;
}

function renderProgress() {
  const current = latest && latest.current;
  const fill = byId('progressFill');
  let percent = 0;
  if (current && current.started && current.expectedEnd) {
    const start = Date.parse(current.started);
    const end = Date.parse(current.expectedEnd);
    if (end > start) percent = Math.min(100, Math.max(0, (Date.now() - start) / (end - start) * 100));
  }
  if (current && current.status === 'Done') percent = 100;
  fill.style.width = percent.toFixed(1) + '%';
  byId('progress').setAttribute('aria-valuenow', Math.round(percent));
}

function render(data) {
  latest = data;
  setText('instrument', data.instrument);
  document.title = data.instrument + ' · Spinlane';
  const state = data.spinlane ? data.runState : 'unknown';
  const runState = byId('runState');
  runState.className = 'state-' + state;
  runState.textContent = data.spinlane ? state : 'Spinlane is not running';
  setText('queueEnd', data.queueEnd ? 'Queue expected to end ' + localTime(data.queueEnd) +
                                      (data.ifStartedNow ? ' if started now' : '') : '');
  const current = data.current;
  byId('current').hidden = !current;
  if (current) {
    setText('currentTitle', state === 'running' ? 'Now running' : 'Last item');
    setText('currentNumber', number(current.number));
    setText('currentSample', current.sample);
    setText('currentExperiment', current.experiment);
    setText('currentUser', current.user);
    setText('currentStatus', current.status);
    setText('currentStarted', current.started ? 'Started ' + localTime(current.started) : '');
    setText('currentEnd', current.expectedEnd ? '· expected end ' + localTime(current.expectedEnd)
                                              : '');
  }
  renderProgress();
  renderQueue(data);
  setText('updated', localTime(data.updated) || 'never');
}

// Every message is the whole state: one that missed others is in step all the same.
function take(message) {
  if (!message.instrument) return;
  document.body.dataset.seq = message.seq;
  render(message.instrument);
}

function start() {
  rememberMine(() => { if (latest) renderQueue(latest); });
  fetch('/api/v1/instrument', { cache: 'no-store' })
    .then((response) => response.json())
    .then((data) => { if (!latest) render(data); })
    .catch(() => { byId('connection').hidden = false; });
  followLive(take);
  setInterval(renderProgress, 1000);
}

start();
