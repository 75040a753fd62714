// Spinlane's instrument page: the state from /api/v1/instrument, then every change from the live
// channel. "My samples" answers first, as cards; times are clock times and how long until them,
// re-rendered every 20 seconds without a message from the server. Texts from the queue are set
// with textContent only, never as markup.
'use strict';

let latest = null;
let mineNumbers = { user: '', numbers: [] }; // the user's items when the page carries no user IDs

function setText(id, text) { byId(id).textContent = text; }

function mine() { return byId('mine').value.trim().toLowerCase(); }

function finished(item) { return item.status === 'Done' || item.status === 'Failed'; }

function isMine(data, item) {
  const filter = mine();
  if (!filter) return true;
  if (!data.usersHidden) return item.user.toLowerCase() === filter;
  return mineNumbers.user === filter && mineNumbers.numbers.includes(item.number);
}

// "done 14:36", or the expected end and how long until it; empty when unknown.
function endText(item, live) {
  if (finished(item)) {
    const verb = item.status === 'Done' ? 'done' : 'failed';
    return item.ended ? verb + ' ' + localTime(item.ended) : verb;
  }
  if (!live || !item.expectedEnd) return '';
  return localTime(item.expectedEnd) + ' · ' + untilText(item.expectedEnd, item.basis);
}

// A time with the range it falls in four times in five: the page shows the range where it has
// room (page.css), the likely time where not; `after` follows either ("· in 25 min").
function timeContent(likely, earliest, latest, after) {
  const time = localTime(likely);
  if (!time) return '';
  const low = localTime(earliest);
  const high = localTime(latest);
  const content = document.createDocumentFragment();
  if (low && high && (low !== time || high !== time)) {
    const range = element('span', 'range', low + '-' + high);
    range.title = 'likely ' + time + '; four times in five between these';
    content.append(range, element('span', 'likely', time));
  } else {
    content.append(time);
  }
  if (after) content.append(after);
  return content;
}

// The expected end column: as endText, with the range where the page has room.
function endContent(item, live) {
  if (finished(item) || !live || !item.expectedEnd) return endText(item, live);
  if (item.longerThanAnyRun) return 'longer than any past run';
  return timeContent(item.expectedEnd, item.earliestEnd, item.latestEnd,
                     ' · ' + untilText(item.expectedEnd, item.basis));
}

// The columns the queue shows: the sample and user columns only when the server sends them.
function columns(data) {
  const all = [
    ['No.', '', (item) => number(item.number)],
    ['Pos.', 'position', (item) => String(item.position)],
    ['Sample', 'sample', (item) => item.sample, data.sampleNamesHidden],
    ['Experiment', 'wrap', (item) => item.experiment],
    ['User', 'user', (item) => item.user, data.usersHidden],
    ['Status', 'status', null],
    ['Expected start', 'start', (item) => (finished(item) ? '' : timeContent(item.expectedStart,
                                            item.earliestStart, item.latestStart, ''))],
    ['Expected end', 'end', (item) => endContent(item, data.spinlane)],
  ];
  return all.filter((column) => !column[3]);
}

function renderQueue(data) {
  const shownColumns = columns(data);
  const head = byId('queue').tHead.rows[0];
  head.replaceChildren(...shownColumns.map(([title, className]) => {
    const th = document.createElement('th');
    th.textContent = title;
    if (className) th.className = className;
    return th;
  }));
  const rows = [];
  for (const item of data.queue) {
    if (!isMine(data, item)) continue;
    const row = document.createElement('tr');
    row.dataset.number = item.number;
    if (data.current && data.current.number === item.number) row.className = 'current';
    for (const [title, className, text] of shownColumns) {
      if (!text) {
        const status = row.insertCell();
        status.className = 'status';
        const badge = document.createElement('span');
        badge.className = 'badge ' + statusClass(item.status);
        badge.textContent = item.status;
        status.appendChild(badge);
        continue;
      }
      const content = text(item);
      const td = cell(row, typeof content === 'string' ? content : '', className);
      if (typeof content !== 'string') td.appendChild(content);
      if (!finished(item)) td.dataset.label = title; // a phone's label: "Expected end: …"
    }
    rows.push(row);
  }
  byId('queue').tBodies[0].replaceChildren(...rows);
  setText('queueCount', mine() ? '(' + rows.length + ' of ' + data.queue.length + ')'
                               : '(' + data.queue.length + ')');
  byId('empty').hidden = !data.spinlane || data.queue.length !== 0;
  const stale = !data.spinlane && Boolean(data.asOf);
  byId('queueSection').classList.toggle('stale', stale);
  byId('asOf').hidden = !stale;
  setText('asOf', stale ? 'As of ' + localTime(data.asOf) + '; Spinlane is not running' : '');
  renderMine(data);
}

// The user's items first, as cards that answer "when is my sample done?" in one sentence.
function renderMine(data) {
  const cards = [];
  if (mine()) {
    let before = 0; // items still to run ahead of this one
    for (const item of data.queue) {
      if (isMine(data, item)) cards.push(mineCard(data, item, before));
      if (!finished(item)) ++before;
    }
    if (!cards.length) cards.push(element('p', 'none', 'No items of ' + byId('mine').value.trim() +
                                                       ' in the queue.'));
  }
  byId('mineCards').replaceChildren(...cards);
  byId('mineCards').hidden = !cards.length;
  byId('mineCards').classList.toggle('stale', !data.spinlane);
}

function element(tag, className, text) {
  const e = document.createElement(tag);
  if (className) e.className = className;
  if (text !== undefined) e.textContent = text;
  return e;
}

function mineCard(data, item, before) {
  const box = element('article', 'mine-card ' + statusClass(item.status) + '-card');
  box.dataset.number = item.number;
  let when;
  if (finished(item)) {
    when = endText(item, data.spinlane);
  } else if (!data.spinlane) {
    when = item.status.toLowerCase();
  } else if (item.status === 'In progress') {
    when = item.longerThanAnyRun ? 'running, longer than any past run'
         : 'running' + (item.expectedEnd ? ', expected end ' + endText(item, true).replace(' · ', ', ')
                                         : ', no expected end yet');
  } else {
    when = item.expectedEnd ? 'expected ' + endText(item, true).replace(' · ', ', ')
                            : 'no expected time yet';
    when += '; ' + (before === 0 ? 'next' : before + (before === 1 ? ' item' : ' items') +
                                            ' before it');
  }
  box.appendChild(element('p', 'answer', 'Your ' + item.experiment + ' on position ' +
                                         item.position + ': ' + when));
  box.appendChild(element('p', 'detail', number(item.number) +
                                         (item.sample ? ' · ' + item.sample : '') + ' · ' +
                                         item.status));
  return box;
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

// What the current item's times say; why there is no bar when its experiment has no estimate.
function currentEndText(current) {
  if (current.expectedEnd)
    return '· expected end ' + localTime(current.expectedEnd) + ', ' +
           untilText(current.expectedEnd, current.basis);
  if (current.status !== 'In progress') return '';
  return '· no expected end yet: ' + current.experiment +
         ' has not run here before and the settings give it no default time';
}

function render(data) {
  latest = data;
  setText('instrument', data.instrument);
  document.title = data.instrument + ' · Spinlane';
  const state = data.spinlane ? data.runState : 'unknown';
  const runState = byId('runState');
  runState.className = 'state-' + state;
  runState.textContent = data.spinlane ? state : 'Spinlane is not running';
  setText('queueEnd', data.queueEnd ? 'Queue expected to end ' + localTime(data.queueEnd) + ', ' +
                                      untilText(data.queueEnd) +
                                      (data.ifStartedNow ? ' if started now' : '') : '');
  const current = data.current;
  byId('current').hidden = !current;
  if (current) {
    setText('currentTitle', state === 'running' ? 'Now running' : 'Last item');
    setText('currentNumber', number(current.number));
    setText('currentSample', current.sample);
    setText('currentExperiment', current.experiment);
    setText('currentUser', data.usersHidden ? '' : 'User ' + current.user + ' · ');
    setText('currentStatus', current.status);
    setText('currentStarted', current.started ? 'Started ' + localTime(current.started) : '');
    setText('currentEnd', currentEndText(current));
  }
  renderProgress();
  renderQueue(data);
  setText('updated', localTime(data.updated) || 'never');
}

// With user IDs hidden, the server says which items are the user's, asked by the exact ID.
function askMine() {
  const user = mine();
  if (!latest || !latest.usersHidden || !user) return;
  fetch('/api/v1/instrument/users/' + encodeURIComponent(user), { cache: 'no-store' })
    .then((response) => response.json())
    .then((answer) => {
      if (user !== mine()) return;
      mineNumbers = { user, numbers: answer.numbers || [] };
      renderQueue(latest);
    })
    .catch(() => {});
}

// Every message is the whole state: one that missed others is in step all the same.
function take(message) {
  if (!message.instrument) return;
  document.body.dataset.seq = message.seq;
  render(message.instrument);
  askMine();
}

function start() {
  rememberMine(() => { if (latest) { renderQueue(latest); askMine(); } });
  fetch('/api/v1/instrument', { cache: 'no-store' })
    .then((response) => response.json())
    .then((data) => { if (!latest) { render(data); askMine(); } })
    .catch(() => { byId('connection').hidden = false; });
  followLive(take);
  setInterval(renderProgress, 1000);
  setInterval(() => { if (latest) render(latest); }, 20000); // "in 25 min" moves on
}

start();
