// The facility's usage for its managers: a login, then a month's instrument hours per
// organization as a stacked bar chart (one colour per instrument) and as a table, with the CSV
// to download. Texts are set with textContent only, never as markup.
'use strict';

const byId = (id) => document.getElementById(id);
const colours = ['#1d48c8', '#0b7a0b', '#c21d1d', '#b38600', '#7b3fb5', '#00838f', '#d2691e',
                 '#5a5a5a', '#c2185b', '#558b2f'];
let chart = null;

function thisMonth() {
  const now = new Date();
  return now.getFullYear() + '-' + String(now.getMonth() + 1).padStart(2, '0');
}

function hours(value) { return value.toFixed(2); }

function show(loggedIn) {
  byId('login').hidden = loggedIn;
  byId('usage').hidden = !loggedIn;
}

function problem(id, text) {
  byId(id).textContent = text;
  byId(id).hidden = !text;
}

function cell(row, text, className, header) {
  const td = document.createElement(header ? 'th' : 'td');
  td.textContent = text;
  if (className) td.className = className;
  row.appendChild(td);
}

// hoursOf[organization][instrument]
function pivot(usage) {
  const hoursOf = {};
  for (const c of usage.cells) {
    hoursOf[c.organization] = hoursOf[c.organization] || {};
    hoursOf[c.organization][c.instrument] = c.hours;
  }
  return hoursOf;
}

function drawTable(usage, hoursOf) {
  const head = byId('usageTable').tHead.rows[0];
  const body = byId('usageTable').tBodies[0];
  const foot = byId('usageTable').tFoot.rows[0];
  head.replaceChildren();
  body.replaceChildren();
  foot.replaceChildren();
  cell(head, 'Organization', '', true);
  for (const instrument of usage.instruments) cell(head, instrument, 'hours', true);
  cell(head, 'Total', 'hours', true);
  for (const organization of usage.organizations) {
    const row = body.insertRow();
    cell(row, organization || '(none)', 'organization');
    let total = 0;
    for (const instrument of usage.instruments) {
      const value = hoursOf[organization][instrument] || 0;
      total += value;
      cell(row, value ? hours(value) : '', 'hours');
    }
    cell(row, hours(total), 'hours total');
  }
  cell(foot, 'Total');
  for (const instrument of usage.instruments) {
    const sum = usage.cells.filter((c) => c.instrument === instrument)
      .reduce((s, c) => s + c.hours, 0);
    cell(foot, hours(sum), 'hours');
  }
  cell(foot, hours(usage.hours), 'hours');
}

function drawChart(usage, hoursOf) {
  const data = {
    labels: usage.organizations.map((o) => o || '(none)'),
    datasets: usage.instruments.map((instrument, n) => ({
      label: instrument,
      data: usage.organizations.map((o) => hoursOf[o][instrument] || 0),
      backgroundColor: colours[n % colours.length],
    })),
  };
  if (chart) chart.destroy();
  // The chart's texts as large as the page's, which grows on wide screens.
  const page = getComputedStyle(document.documentElement);
  Chart.defaults.font.size = Math.round(parseFloat(page.fontSize) * 0.8);
  Chart.defaults.font.family = page.fontFamily;
  Chart.defaults.color = page.getPropertyValue('--text').trim() || '#1b1b1b';
  chart = new Chart(byId('chart'), {
    type: 'bar',
    data,
    options: {
      animation: false,
      maintainAspectRatio: false,
      scales: { x: { stacked: true },
                y: { stacked: true, title: { display: true, text: 'Instrument hours' } } },
    },
  });
}

async function load() {
  const month = byId('month').value || thisMonth();
  const answer = await fetch('/api/v1/facility/usage/' + month, { cache: 'no-store' });
  if (answer.status === 401) {
    show(false);
    return;
  }
  show(true);
  if (!answer.ok) {
    problem('usageProblem', await answer.text());
    return;
  }
  problem('usageProblem', '');
  const usage = await answer.json();
  const hoursOf = pivot(usage);
  byId('download').href = '/api/v1/facility/usage/' + usage.month + '.csv';
  byId('totals').textContent = usage.items
    ? usage.items + ' items, ' + hours(usage.hours) + ' instrument hours'
    : 'No item ended in this month.';
  drawTable(usage, hoursOf);
  drawChart(usage, hoursOf);
  document.body.dataset.shown = usage.month;
}

async function logIn(event) {
  event.preventDefault();
  problem('loginProblem', '');
  const answer = await fetch('/api/v1/login', {
    method: 'POST',
    headers: { 'Content-Type': 'application/json' },
    body: JSON.stringify({ user: byId('user').value, password: byId('password').value }),
  });
  byId('password').value = '';
  if (!answer.ok) {
    problem('loginProblem', await answer.text());
    return;
  }
  await load();
}

async function logOut() {
  await fetch('/api/v1/logout', { method: 'POST' });
  delete document.body.dataset.shown;
  show(false);
}

byId('month').value = new URLSearchParams(location.search).get('month') || thisMonth();
byId('month').addEventListener('change', load);
byId('loginForm').addEventListener('submit', logIn);
byId('logOut').addEventListener('click', logOut);
load();
