// The gadget page's behaviour. The page itself is generated from the theme's forms; this script
// knows only the kinds of elements and the data attributes that say what they bind:
//   data-p     a parameter ("<controller>:<name>"): edit boxes, check boxes, buttons, select
//              boxes, texts, variants on a parameter
//   data-prop  a property: variants and busy indicators
//   data-list  a list the component publishes: painted from the drawing the host recorded, and
//              laid over with a grid of the same cells for the keyboard and screen readers
// Changes arrive as server-sent events; what the user does is posted, one request after the
// other, in the order it happened.
'use strict';

(() => {
  let state = { values: {}, props: {}, lists: {} };
  let queue = Promise.resolve();

  /// Posts `fields` to `path` now; resolves to the response, or null when there was none.
  async function send(path, fields) {
    try {
      const response = await fetch(path, { method: 'POST', body: new URLSearchParams(fields) });
      if (!response.ok) {
        const reason = (await response.text()).trim();
        if (response.status === 409 && path === 'list/drop') showAlert(reason);
        // What the keyboard asked of a list and the list refused is said, not only logged.
        else if (response.status === 409 && path.startsWith('list/')) announce(reason);
        else console.warn(`${path}: ${reason}`);
      }
      return response;
    } catch (error) {
      console.warn(`${path}: ${error}`);
      return null;
    }
  }

  /// Runs `work` after everything queued before it has been answered.
  function enqueue(work) {
    const done = queue.then(work);
    queue = done.then(() => undefined, () => undefined);
    return done;
  }

  /// Posts `fields` to `path` after everything posted before.
  function post(path, fields) { return enqueue(() => send(path, fields)); }

  const isShown = (element) => !!element && element.isConnected && element.getClientRects().length > 0;
  const isUsable = (element) => isShown(element) && !element.disabled;
  const fieldsIn = (root) => [...root.querySelectorAll('input, textarea, select, button, a[href], [tabindex="0"]')]
    .filter((element) => isUsable(element) && element.type !== 'file');

  /// The gadget's window: its first field that takes input gets the focus.
  // Where the user last put the focus (a click, a key), apart from where the page moved it when a
  // view changed: an alert gives the focus back to the user's place, not to the page's guess.
  let movingFocus = false;
  let userFocus = null;
  document.addEventListener('focusin', (event) => {
    if (!movingFocus && !event.target.closest('#alert')) userFocus = event.target;
  });
  function moveFocus(element) {
    movingFocus = true;
    try {
      element.focus();
    } finally {
      movingFocus = false;
    }
  }

  function focusWindow() {
    const main = document.querySelector(`[data-form="${document.body.dataset.main}"]`) || document.body;
    const field = fieldsIn(main)[0];
    if (field) moveFocus(field);
    return main;
  }

  // --- Announcements: a polite live region, one line per message ------------------------------

  const announcer = document.getElementById('announcer');
  function announce(text) {
    if (!text) return;
    const line = document.createElement('p');
    line.textContent = text;
    announcer.append(line);
    while (announcer.childElementCount > 20) announcer.firstElementChild.remove();
  }

  // --- Alerts of the plug-in: modal dialogs, one at a time, in the order they came --------------

  const alertBox = document.getElementById('alert');
  const alertText = document.getElementById('alert-text');
  const alertButton = alertBox.querySelector('button');
  const alerts = [];
  let focusBeforeAlert = null;
  function showAlert(text) {
    alerts.push(text);
    if (alertBox.hidden) {
      const active = document.activeElement;
      focusBeforeAlert = userFocus && userFocus.isConnected ? userFocus
                         : focusLost && !isUsable(active) ? focusLost.element : active;
      focusLost = null;
      nextAlert();
    }
  }
  function nextAlert() {
    if (alerts.length) {
      alertText.textContent = alerts.shift();
      alertBox.hidden = false;
      // Behind the dialog nothing can be reached until it is closed.
      document.querySelector('main').inert = true;
      alertButton.focus();
      return;
    }
    alertBox.hidden = true;
    document.querySelector('main').inert = false;
    // The focus goes back where it was, or, when that has gone (signed out), to the window.
    const back = focusBeforeAlert;
    focusBeforeAlert = null;
    if (back && back !== document.body && isUsable(back)) back.focus();
    else focusWindow();
  }
  alertButton.addEventListener('click', nextAlert);
  alertBox.addEventListener('keydown', (event) => {
    if (event.key === 'Escape') {
      event.preventDefault();
      nextAlert();
    }
  });

  // --- Controls bound to parameters -------------------------------------------------------

  const isTextField = (element) => element.matches('input[type=text], input[type=password], textarea');

  for (const element of document.querySelectorAll('[data-p]')) {
    const key = element.dataset.p;
    if (isTextField(element)) {
      element.addEventListener('change', () => post('value', { key, value: element.value, notify: 1 }));
    } else if (element.matches('input[type=checkbox]')) {
      element.addEventListener('change', () => post('value', { key, value: element.checked ? 1 : 0, notify: 1 }));
    } else if (element.tagName === 'SELECT') {
      element.addEventListener('change', () => post('menu', { key, index: element.selectedIndex }));
    } else if (element.tagName === 'BUTTON') {
      element.addEventListener('click', () => post('press', { key }));
    }
  }

  function applyValue(element, value) {
    if ('on' in value && 'disabled' in element) element.disabled = !value.on;
    if (isTextField(element)) {
      // A password never comes back; a field being typed in keeps what is typed.
      if ('v' in value && document.activeElement !== element) element.value = String(value.v);
    } else if (element.matches('input[type=checkbox]')) {
      element.checked = Number(value.v) !== 0;
    } else if (element.tagName === 'SELECT') {
      const entries = (value.e || []).map((title) => ({ title: String(title), on: true }))
        .concat((value.m || []).map((item) => ({ title: String(item.title), on: !!item.on, command: true })));
      const signature = JSON.stringify(entries);
      if (element.dataset.entries !== signature) {
        element.dataset.entries = signature;
        element.replaceChildren(...entries.map((entry) => {
          const option = new Option(entry.title);
          option.disabled = !entry.on;
          if (entry.command) option.className = 'command';
          return option;
        }));
      }
      const index = Number(value.v);
      if (index >= 0 && index < (value.e || []).length) element.selectedIndex = index;
    } else if (element.classList.contains('urllink')) {
      const address = String(value.v || '');
      if (/^https?:\/\//.test(address)) element.href = address; else element.removeAttribute('href');
    } else if (element.classList.contains('text')) {
      element.textContent = 'v' in value ? String(value.v) : '';
    }
  }

  /// The field whose case a variant hid while it had the focus, and that variant: the focus goes
  /// back to the field when it is shown again (the login view after a refused sign-in), else to
  /// the first field of the case shown.
  let focusLost = null;

  /// The child a variant shows: the one whose case is the value, else the one at its index. The
  /// focus follows: when the field in focus goes with its case, the first field of the case shown
  /// takes it (the Cancel button after Upload), so that it is never left on nothing.
  function applyVariant(variant) {
    const value = variant.dataset.p ? (state.values[variant.dataset.p] || {}).v : state.props[variant.dataset.prop];
    const cases = [...variant.children].filter((child) => child.classList.contains('case'));
    let shown = null;
    if (cases.some((child) => 'case' in child.dataset)) {
      shown = cases.find((child) => child.dataset.case === String(value)) ||
              cases.find((child) => child.dataset.case === variant.dataset.default) || null;
    } else if (cases.length) {
      const index = Math.min(Math.max(Math.trunc(Number(value) || 0), 0), cases.length - 1);
      shown = cases[index];
    }
    const focused = document.activeElement;
    const hadFocus = variant.contains(focused);
    for (const child of cases) child.hidden = child !== shown;
    if (hadFocus && !isUsable(focused) && !(focusLost && focusLost.variant.contains(variant))) {
      focusLost = { variant, element: focused };
    }
  }

  function restoreFocus() {
    if (!focusLost || !alertBox.hidden) return;
    const active = document.activeElement;
    if (active && active !== document.body && isUsable(active)) {
      focusLost = null;
      return;
    }
    // The control that had the focus is shown again but not enabled yet (a button waits for the
    // state that follows its request's answer): the focus waits a moment for it rather than go to
    // another field, and goes on once that moment has passed.
    if (isShown(focusLost.element) && focusLost.element.disabled) {
      focusLost.waitingSince = focusLost.waitingSince || performance.now();
      if (performance.now() - focusLost.waitingSince < 3000) return;
    }
    const field = isUsable(focusLost.element) ? focusLost.element : fieldsIn(focusLost.variant)[0];
    if (field) {
      moveFocus(field);
      focusLost = null;
    }
  }

  // --- Lists ------------------------------------------------------------------------------

  const dragType = 'application/x-sorvel-rows';

  function listOf(element) { return state.lists[element.dataset.list]; }

  /// The row and column under a point of the canvas; row -1 below the last row, null on the header.
  function cellAt(table, x, y) {
    if (!table || y < table.header) return null;
    const row = Math.floor((y - table.header) / table.rowHeight);
    let column = -1;
    for (let left = 0, index = 0; index < table.columns.length; left += table.columns[index], index += 1) {
      if (x >= left && x < left + table.columns[index]) column = index;
    }
    return { row: row < table.rows ? row : -1, column };
  }

  /// The sizable column whose right border is under a point of the header, or -1.
  function borderAt(table, x, y) {
    if (!table || y >= table.header) return -1;
    let right = 0;
    for (let column = 0; column < table.columns.length; column += 1) {
      right += table.columns[column];
      if (Math.abs(x - right) <= 4 && table.sizable[column]) return column;
    }
    return -1;
  }

  function fontOf(operation) {
    const [, , , , , , face, size, style] = operation;
    return `${style & 2 ? 'italic ' : ''}${style & 1 ? 'bold ' : ''}${size}px "${face}", "Liberation Sans", sans-serif`;
  }

  function paintList(element, table) {
    element.classList.toggle('checked', (table.checks || []).length > 0);
    const canvas = element.querySelector('canvas');
    const box = getComputedStyle(element);
    const inside = element.clientWidth - parseFloat(box.paddingLeft) - parseFloat(box.paddingRight);
    const width = Math.max(table.columns.reduce((sum, column) => sum + column, 0), Math.floor(inside));
    const height = Math.max(table.header + table.rows * table.rowHeight, 1);
    const ratio = window.devicePixelRatio || 1;
    canvas.width = Math.round(width * ratio);
    canvas.height = Math.round(height * ratio);
    canvas.style.width = `${width}px`;
    canvas.style.height = `${height}px`;
    const context = canvas.getContext('2d');
    context.setTransform(ratio, 0, 0, ratio, 0, 0);
    context.clearRect(0, 0, width, height);
    // What the list drew across all its columns (backgrounds, the header, the lines between rows)
    // goes on across a list that is wider than its columns.
    const drawn = table.columns.reduce((sum, column) => sum + column, 0);
    for (const operation of table.drawing) {
      const [kind, x, y, w, h] = operation;
      if (kind === 'r') {
        context.fillStyle = operation[5];
        context.fillRect(x, y, x === 0 && w === drawn ? width : w, h);
      } else if (kind === 't') {
        const [, , , , , text, , , , color, alignment] = operation;
        context.save();
        context.beginPath();
        context.rect(x, y, w, h);
        context.clip();
        context.font = fontOf(operation);
        context.fillStyle = color;
        context.textBaseline = 'middle';
        context.textAlign = ['left', 'center', 'right'][alignment] || 'left';
        context.fillText(text, alignment === 1 ? x + w / 2 : alignment === 2 ? x + w : x, y + h / 2);
        context.restore();
      }
    }
    // The selection tints the rows it covers, under their texts' colour.
    context.globalCompositeOperation = 'multiply';
    context.fillStyle = table.selectColor;
    for (const row of table.selection) context.fillRect(0, table.header + row * table.rowHeight, width, table.rowHeight - 1);
    context.globalCompositeOperation = 'source-over';
  }

  // --- The grid over a list: the same rows and cells as words, for the keyboard and screen readers

  /// What the page keeps per list: the cell in focus (row -1 is the header), the rows picked up
  /// to be dropped elsewhere, and what was last said of each row's state.
  const views = new Map();
  function viewOf(element) {
    if (!views.has(element)) views.set(element, { row: 0, column: 0, carried: null, said: new Map() });
    return views.get(element);
  }

  const wordsOf = (name) => String(name).replace(/[_.-]+/g, ' ').replace(/([a-z])([A-Z])/g, '$1 $2')
    .toLowerCase().replace(/^./, (first) => first.toUpperCase());
  const verdictOf = (check) => (check === 'ok' ? 'OK' : wordsOf(check));
  const checkOf = (table, row) => (table.checks || []).find(([checked]) => checked === row);
  const tooltipOf = (table, row, column) => {
    const tip = table.tooltips.find(([r, c]) => r === row && c === column);
    return tip ? tip[2] : '';
  };

  /// The grid's columns: the verdict of the pre-flight report first when a row has one (its badge
  /// stands left of the rows), then the list's own columns, each where the painting has it.
  function gridColumns(table) {
    const columns = [];
    if ((table.checks || []).length) columns.push({ title: 'Check', left: -70, width: 66, column: -1 });
    let left = 0;
    table.columns.forEach((width, column) => {
      const title = (table.titles || [])[column] || wordsOf((table.identifiers || [])[column] || `Column ${column + 1}`);
      columns.push({ title, left, width, column });
      left += width;
    });
    return columns;
  }

  /// The words and the description of one cell of the grid.
  function cellOf(table, row, column) {
    if (column.column < 0) {
      const check = checkOf(table, row);
      if (!check) return ['', ''];
      const [, report] = check;
      return [verdictOf(report.check), report.findings.map((finding) => `${finding.severity}: ${finding.text}`).join('; ')];
    }
    const text = ((table.cells || [])[row] || [])[column.column] || '';
    const tip = tooltipOf(table, row, column.column);
    return [text, tip !== text ? tip : ''];
  }

  /// Makes `parent` hold `count` children, adding them with `make` (given the new child's index)
  /// or taking the last ones away.
  function resize(parent, count, make) {
    while (parent.childElementCount > count) parent.lastElementChild.remove();
    while (parent.childElementCount < count) parent.append(make(parent.childElementCount));
  }

  /// A row of the grid at `index` (0 is the header), made once and kept while the row is there.
  function makeLine(index) {
    const line = document.createElement('div');
    line.setAttribute('role', 'row');
    line.setAttribute('aria-rowindex', String(index + 1));
    line.dataset.row = String(index - 1);
    return line;
  }

  function makeCell(line, position) {
    const cell = document.createElement('div');
    cell.setAttribute('role', line.dataset.row === '-1' ? 'columnheader' : 'gridcell');
    cell.setAttribute('aria-colindex', String(position + 1));
    cell.dataset.column = String(position);
    cell.tabIndex = -1;
    return cell;
  }

  function setText(cell, text, description) {
    let words = cell.firstElementChild;
    if (!words) {
      words = document.createElement('span');
      words.className = 'visually-hidden';
      cell.append(words);
    }
    if (words.textContent !== text) words.textContent = text;
    if (description && cell.title !== description) cell.title = description;
    else if (!description && cell.hasAttribute('title')) cell.removeAttribute('title');
  }

  function place(element, left, top, width, height) {
    const box = `left:${left}px;top:${top}px;width:${width}px;height:${height}px`;
    if (element.dataset.box !== box) {
      element.dataset.box = box;
      element.style.cssText = box;
    }
  }

  function cellElement(grid, row, column) {
    const line = grid.children[row + 1];
    return line ? line.children[column] : null;
  }

  /// Brings the grid in step with the list: the rows in order with their selection, each cell
  /// with the words the model painted into it. Elements are changed in place, never made anew,
  /// so that the cell in focus keeps it while an upload changes the rows around it.
  function renderGrid(element, table) {
    const grid = element.querySelector('.grid');
    const view = viewOf(element);
    const columns = gridColumns(table);
    const total = table.columns.reduce((sum, width) => sum + width, 0);
    const hadFocus = grid.contains(document.activeElement);
    grid.style.width = `${total}px`;
    grid.style.height = `${table.header + table.rows * table.rowHeight}px`;
    grid.setAttribute('aria-rowcount', String(table.rows + 1));
    grid.setAttribute('aria-colcount', String(columns.length));
    resize(grid, table.rows + 1, makeLine);
    [...grid.children].forEach((line, index) => {
      const row = index - 1;
      const top = row < 0 ? 0 : table.header + row * table.rowHeight;
      const height = row < 0 ? table.header : table.rowHeight;
      place(line, 0, top, total, height);
      if (row >= 0) {
        const selected = String(table.selection.includes(row));
        if (line.getAttribute('aria-selected') !== selected) line.setAttribute('aria-selected', selected);
      }
      line.classList.toggle('carried', !!view.carried && view.carried.includes(row));
      resize(line, columns.length, (position) => makeCell(line, position));
      [...line.children].forEach((cell, position) => {
        const column = columns[position];
        place(cell, column.left, 0, column.width, height);
        if (row < 0) setText(cell, column.title, '');
        else setText(cell, ...cellOf(table, row, column));
      });
    });
    // One cell is reached by Tab: the one in focus, kept inside what the grid has now.
    view.row = Math.min(Math.max(view.row, -1), table.rows - 1);
    view.column = Math.min(Math.max(view.column, 0), columns.length - 1);
    for (const cell of grid.querySelectorAll('[tabindex="0"]')) cell.tabIndex = -1;
    const current = cellElement(grid, view.row, view.column);
    if (current) {
      current.tabIndex = 0;
      if (hadFocus && document.activeElement !== current) current.focus({ preventScroll: false });
    }
  }

  /// Moves the focus to a cell; `select` says what happens to the selection: "only" the row,
  /// "extend" from the row last chosen, or "keep".
  function focusCell(element, row, column, select) {
    const table = listOf(element);
    const view = viewOf(element);
    const columns = gridColumns(table);
    view.row = Math.min(Math.max(row, -1), table.rows - 1);
    view.column = Math.min(Math.max(column, 0), columns.length - 1);
    const grid = element.querySelector('.grid');
    for (const cell of grid.querySelectorAll('[tabindex="0"]')) cell.tabIndex = -1;
    const cell = cellElement(grid, view.row, view.column);
    if (cell) {
      cell.tabIndex = 0;
      cell.focus();
    }
    if (view.row >= 0 && select !== 'keep') {
      post('list/select', { key: element.dataset.list, row: view.row, shift: select === 'extend' ? 1 : 0, ctrl: 0 });
    }
  }

  /// Resolves with the state once `condition` holds for it (at once when it does now); rejects
  /// after `timeout` milliseconds.
  function stateWhere(condition, timeout = 10000) {
    return new Promise((resolve, reject) => {
      if (condition(state)) { resolve(state); return; }
      const watcher = (next) => {
        if (!condition(next)) return;
        watchers.splice(watchers.indexOf(watcher), 1);
        clearTimeout(timer);
        resolve(next);
      };
      const timer = setTimeout(() => {
        watchers.splice(watchers.indexOf(watcher), 1);
        reject(new Error('the state did not come'));
      }, timeout);
      watchers.push(watcher);
    });
  }

  /// The row's words, cell after cell, as a screen reader would read it.
  function rowWords(table, row) {
    return gridColumns(table).map((column) => cellOf(table, row, column)[0]).filter((text) => text).join(', ');
  }

  /// Opens the row in focus in the fields below the list (the inspector): selects it unless it
  /// already is, then gives the focus to the first field that can be edited.
  async function editRow(element, row) {
    const key = element.dataset.list;
    const list = await settled(key);
    if (!list || row >= list.rows) return;
    if (!list.selection.includes(row)) post('list/select', { key, row, shift: 0, ctrl: 0 });
    try {
      await stateWhere((next) => next.lists[key] && next.lists[key].selection.includes(row));
    } catch (error) {
      return;
    }
    const after = [...document.querySelectorAll('input[type=text], textarea')].filter((field) =>
      isUsable(field) && (element.compareDocumentPosition(field) & Node.DOCUMENT_POSITION_FOLLOWING));
    if (after.length) after[0].focus();
    else announce('The selected rows have nothing to edit.');
  }

  /// The list as the host has it once everything asked before has been answered. The keys that
  /// act on the selection read it here, not from a state that may still be on its way (Shift and
  /// Down, then at once Delete).
  function settled(key) {
    return enqueue(async () => {
      try {
        const response = await fetch('state');
        if (response.ok) return (await response.json()).lists[key] || null;
      } catch (error) {
        console.warn(`state: ${error}`);
      }
      return state.lists[key] || null;
    });
  }

  /// The rows a key acts on: the selection when the row in focus is part of it, else that row.
  async function rowsAt(element, row) {
    const list = await settled(element.dataset.list);
    if (!list || row >= list.rows) return [];
    return list.selection.includes(row) ? list.selection : [row];
  }

  async function removeRows(element, row) {
    const rows = await rowsAt(element, row);
    if (!rows.length) return;
    const response = await post('list/remove', { key: element.dataset.list, rows: rows.join(',') });
    if (response && response.ok) announce(rows.length === 1 ? 'Removed.' : `${rows.length} removed.`);
  }

  async function pickUp(element, row) {
    const view = viewOf(element);
    view.carried = await rowsAt(element, row);
    renderGrid(element, listOf(element));
    const count = view.carried.length;
    announce(`${count === 1 ? 'One row' : `${count} rows`} picked up. ` +
             'Control and V drops on the row in focus, Control, Shift and V after the last row, Escape puts back.');
  }

  /// Drops the rows picked up on `row` (the list's row count: after the last row).
  async function dropCarried(element, row) {
    const view = viewOf(element);
    const key = element.dataset.list;
    const rows = view.carried;
    view.carried = null;
    const cells = JSON.stringify(listOf(element).cells);
    const response = await post('list/move', { key, rows: rows.join(','), row });
    if (!response || !response.ok) {
      renderGrid(element, listOf(element));
      return;
    }
    try {
      // A move changes the cells; the list then selects the row where the first file landed.
      const next = await stateWhere((now) => now.lists[key] && JSON.stringify(now.lists[key].cells) !== cells);
      const landed = next.lists[key].selection[0];
      focusCell(element, landed, view.column, 'keep');
      announce(`Dropped. ${rowWords(next.lists[key], landed)}`);
    } catch (error) {
      announce('Dropped.');
    }
  }

  function onGridKey(element, event) {
    const table = listOf(element);
    if (!table) return;
    const view = viewOf(element);
    const key = element.dataset.list;
    const ctrl = event.ctrlKey || event.metaKey;
    const last = gridColumns(table).length - 1;
    const follow = event.shiftKey ? 'extend' : ctrl ? 'keep' : 'only';
    const page = Math.max(Math.floor(element.clientHeight / table.rowHeight) - 1, 1);
    const { row, column } = view;
    const inRow = row >= 0 && row < table.rows;
    switch (event.key) {
      case 'ArrowDown': focusCell(element, Math.min(row + 1, table.rows - 1), column, follow); break;
      case 'ArrowUp': {
        // Above the first row is the header, which selects nothing.
        const up = Math.max(row - 1, -1);
        focusCell(element, up, column, up < 0 ? 'keep' : follow);
        break;
      }
      case 'ArrowRight': focusCell(element, row, Math.min(column + 1, last), 'keep'); break;
      case 'ArrowLeft': focusCell(element, row, Math.max(column - 1, 0), 'keep'); break;
      case 'Home':
        if (ctrl) focusCell(element, Math.min(0, table.rows - 1), column, event.shiftKey ? 'extend' : 'only');
        else focusCell(element, row, 0, 'keep');
        break;
      case 'End':
        if (ctrl) focusCell(element, table.rows - 1, column, event.shiftKey ? 'extend' : 'only');
        else focusCell(element, row, last, 'keep');
        break;
      case 'PageDown': focusCell(element, Math.min(row + page, table.rows - 1), column, follow); break;
      case 'PageUp': focusCell(element, Math.max(row - page, 0), column, follow); break;
      case ' ':
        if (!inRow) return;
        post('list/select', { key, row, shift: event.shiftKey ? 1 : 0, ctrl: ctrl ? 1 : 0 });
        break;
      case 'Enter':
        if (!inRow) return;
        editRow(element, row);
        break;
      case 'Delete':
      case 'Backspace':
        if (!inRow) return;
        removeRows(element, row);
        break;
      case 'Escape':
        if (!view.carried && !view.pickingUp) return;
        (view.pickingUp || Promise.resolve()).then(() => {
          view.carried = null;
          renderGrid(element, listOf(element));
          announce('Nothing was moved.');
        });
        break;
      default: {
        const letter = event.key.toLowerCase();
        if (ctrl && letter === 'x' && inRow) {
          view.pickingUp = pickUp(element, row).finally(() => { view.pickingUp = null; });
        } else if (ctrl && letter === 'v' && (view.carried || view.pickingUp) && (inRow || event.shiftKey)) {
          (view.pickingUp || Promise.resolve()).then(() => {
            if (view.carried) dropCarried(element, event.shiftKey ? listOf(element).rows : row);
          });
        } else {
          return;
        }
      }
    }
    event.preventDefault();
  }

  // --- Pre-flight report: a badge per row, the selected row's figures beside the inspector ---

  const figureRows = [
    ['integrated_loudness_lufs', 'Loudness', 'LUFS'], ['loudness_range_lu', 'Loudness range', 'LU'],
    ['true_peak_dbtp', 'True peak', 'dBTP'], ['sample_peak_dbfs', 'Sample peak', 'dBFS'],
    ['clipped_samples', 'Clipped samples', ''], ['leading_silence_s', 'Silence at the start', 's'],
    ['trailing_silence_s', 'Silence at the end', 's'],
  ];

  function figureText(value, unit) {
    if (value === null || value === undefined) return `-inf ${unit}`.trim();
    // Rounded first, so that a level just under zero reads 0.0, not -0.0.
    const text = Number.isInteger(value) && !unit ? String(value) : (Math.round(value * 10) / 10 || 0).toFixed(1);
    return `${text} ${unit}`.trim();
  }

  function preflightPanel(element) {
    let panel = document.getElementById('preflight');
    if (!panel) {
      panel = document.createElement('section');
      panel.id = 'preflight';
      panel.className = 'preflight panel';
      panel.setAttribute('aria-label', 'Pre-flight report');
      // Beside the inspector: under the window beside the one that holds it (the dashboard), in
      // a column of their own; after that window when it stands alone.
      const inspector = document.querySelector('[data-p="TrackInfo:hasFocusItem"], [data-prop="TrackInfo:hasFocusItem"]');
      const client = (inspector || element).closest('.panel') || element;
      const neighbour = [...document.querySelectorAll('.gadget > .panel')].find((window) => window !== client);
      if (neighbour) {
        const column = document.createElement('div');
        column.className = 'column';
        neighbour.before(column);
        column.append(neighbour, panel);
        panel.style.width = `${neighbour.offsetWidth}px`;
      } else {
        client.after(panel);
      }
    }
    return panel;
  }

  function paintChecks(element, table) {
    let badges = element.querySelector('.badges');
    if (!badges) {
      badges = document.createElement('div');
      badges.className = 'badges';
      // The grid's first column says the same in words.
      badges.setAttribute('aria-hidden', 'true');
      element.append(badges);
    }
    const checks = table.checks || [];
    badges.replaceChildren(...checks.map(([row, report]) => {
      const badge = document.createElement('span');
      badge.className = `badge ${report.check}`;
      badge.dataset.row = row;
      badge.textContent = report.check;
      badge.title = report.findings.map((finding) => `${finding.severity}: ${finding.text}`).join('\n');
      badge.style.top = `${table.header + row * table.rowHeight + Math.max((table.rowHeight - 16) / 2, 0)}px`;
      return badge;
    }));
    if (!checks.length && !document.getElementById('preflight')) return;

    const panel = preflightPanel(element);
    const selected = checks.find(([row]) => row === table.selection[0]);
    panel.hidden = !selected;
    if (!selected) return;
    const [row, report] = selected;
    panel.setAttribute('aria-label', report.heading || 'Pre-flight report');
    const heading = document.createElement('h2');
    heading.textContent = report.heading || 'Pre-flight report';
    const verdict = document.createElement('span');
    verdict.className = `badge ${report.check}`;
    verdict.textContent = report.check;
    heading.append(' ', verdict);
    const figures = document.createElement('dl');
    for (const [key, label, unit] of figureRows) {
      if (!(key in report)) continue;
      const term = document.createElement('dt');
      term.textContent = label;
      const value = document.createElement('dd');
      value.dataset.figure = key;
      value.textContent = figureText(report[key], unit);
      figures.append(term, value);
    }
    const findings = document.createElement('ul');
    for (const finding of report.findings) {
      const item = document.createElement('li');
      item.className = finding.severity;
      item.textContent = `${finding.severity}: ${finding.text}`;
      findings.append(item);
    }
    panel.dataset.row = row;
    panel.replaceChildren(heading, figures, findings);
  }

  // --- What an upload changes in a list, said once ---------------------------------------------

  const percentage = /\d+(?:[.,]\d+)?\s*%/;

  /// Says what changed in the list's state column since the state before: a row's new state
  /// once (its value changed; the words are said), and its progress at most every quarter.
  function announceRows(element, before, after) {
    const view = viewOf(element);
    const status = (after.identifiers || []).indexOf('status');
    const name = (after.identifiers || []).indexOf('remote_track');
    if (status < 0 || !before || before.rows !== after.rows) {
      view.said.clear();
      return;
    }
    const at = (table, kind, row, column) => ((table[kind] || [])[row] || [])[column];
    for (let row = 0; row < after.rows; row += 1) {
      const now = at(after, 'cells', row, status) || '';
      if (now === (at(before, 'cells', row, status) || '') || at(before, 'cells', row, name) !== at(after, 'cells', row, name)) {
        continue;
      }
      // A list that gives its cells no values is judged by its words, the percentage left out.
      const value = at(after, 'values', row, status);
      const state = value === undefined || value === null ? now.replace(percentage, '%') : value;
      const matched = now.match(percentage);
      const quarter = matched ? Math.floor(parseFloat(matched[0].replace(',', '.')) / 25) : -1;
      const said = view.said.get(row);
      if (said && said.state === state && quarter <= said.quarter) continue;
      view.said.set(row, { state, quarter });
      announce(`${at(after, 'cells', row, name) || `Row ${row + 1}`}: ${now}`);
    }
  }

  for (const element of document.querySelectorAll('[data-list]')) {
    const key = element.dataset.list;
    const canvas = element.querySelector('canvas');
    const grid = element.querySelector('.grid');
    canvas.draggable = true;

    grid.addEventListener('keydown', (event) => onGridKey(element, event));
    grid.addEventListener('focusin', (event) => {
      const cell = event.target.closest('[role=gridcell], [role=columnheader]');
      if (!cell) return;
      const view = viewOf(element);
      view.row = Number(cell.parentElement.dataset.row);
      view.column = Number(cell.dataset.column);
    });

    canvas.addEventListener('click', (event) => {
      const table = listOf(element);
      const cell = cellAt(table, ...point(canvas, event));
      if (cell && cell.row >= 0 && cell.column >= 0) {
        post('list/click', { key, row: cell.row, column: cell.column, shift: event.shiftKey ? 1 : 0,
          ctrl: event.ctrlKey || event.metaKey ? 1 : 0 });
        // The keyboard goes on from the cell clicked.
        const offset = gridColumns(table).length - table.columns.length;
        focusCell(element, cell.row, cell.column + offset, 'keep');
      }
    });
    // A sizable column's header border is dragged to a new width.
    const guide = document.createElement('div');
    guide.className = 'column-guide';
    guide.hidden = true;
    element.append(guide);
    canvas.addEventListener('mousedown', (event) => {
      const table = listOf(element);
      const [x, y] = point(canvas, event);
      const column = borderAt(table, x, y);
      if (column < 0 || event.button !== 0) return;
      event.preventDefault();
      const start = event.clientX;
      const width = table.columns[column];
      const left = table.columns.slice(0, column).reduce((sum, each) => sum + each, 0);
      const placeGuide = (clientX) => {
        guide.style.left = `${canvas.offsetLeft + canvas.parentElement.offsetLeft + left +
          Math.max(width + clientX - start, 16)}px`;
      };
      placeGuide(start);
      guide.hidden = false;
      const move = (moved) => placeGuide(moved.clientX);
      const up = (released) => {
        window.removeEventListener('mousemove', move);
        window.removeEventListener('mouseup', up);
        guide.hidden = true;
        post('list/column', { key, column, width: Math.round(width + released.clientX - start) });
      };
      window.addEventListener('mousemove', move);
      window.addEventListener('mouseup', up);
    });
    canvas.addEventListener('mousemove', (event) => {
      const table = listOf(element);
      canvas.style.cursor = borderAt(table, ...point(canvas, event)) >= 0 ? 'col-resize' : '';
      const cell = cellAt(table, ...point(canvas, event));
      canvas.title = cell ? tooltipOf(table, cell.row, cell.column) : '';
    });

    // Rows dragged within the list move there; files dragged in from the desktop are sent to
    // the host, which keeps them in its cache folder and drops them on the list.
    canvas.addEventListener('dragstart', (event) => {
      const table = listOf(element);
      const cell = cellAt(table, ...point(canvas, event));
      if (!cell || cell.row < 0) { event.preventDefault(); return; }
      const rows = table.selection.includes(cell.row) ? table.selection : [cell.row];
      event.dataTransfer.setData(dragType, rows.join(','));
      event.dataTransfer.effectAllowed = 'move';
    });
    const accepts = (event) => event.dataTransfer &&
      (event.dataTransfer.types.includes(dragType) || event.dataTransfer.types.includes('Files'));
    element.addEventListener('dragover', (event) => {
      if (!accepts(event)) return;
      event.preventDefault();
      event.dataTransfer.dropEffect = event.dataTransfer.types.includes(dragType) ? 'move' : 'link';
      element.classList.add('drop-target');
    });
    element.addEventListener('dragleave', () => element.classList.remove('drop-target'));
    element.addEventListener('drop', (event) => {
      element.classList.remove('drop-target');
      if (!accepts(event)) return;
      event.preventDefault();
      // A drop below the last row lands after it, as the list's next row.
      const table = listOf(element);
      const cell = cellAt(table, ...point(canvas, event));
      const row = !cell ? 0 : cell.row < 0 ? table.rows : cell.row;
      const rows = event.dataTransfer.getData(dragType);
      if (rows) {
        post('list/move', { key, rows, row });
        return;
      }
      addFiles(key, [...event.dataTransfer.files], row);
    });

    // The keyboard's way to bring files: a button that opens the file chooser; the files chosen
    // go after the last row.
    let actions = element.nextElementSibling;
    while (actions && !actions.classList.contains('list-actions')) actions = actions.nextElementSibling;
    if (actions) {
      const chooser = actions.querySelector('input[type=file]');
      actions.querySelector('button').addEventListener('click', () => chooser.click());
      chooser.addEventListener('change', () => {
        const files = [...chooser.files];
        chooser.value = '';
        if (files.length) addFiles(key, files, listOf(element).rows);
      });
    }
    viewOf(element).actions = actions;

    // The painting fills the list's width, which follows the window's.
    new ResizeObserver(() => { if (listOf(element)) paintList(element, listOf(element)); }).observe(element);
  }

  function point(canvas, event) {
    const box = canvas.getBoundingClientRect();
    return [event.clientX - box.left, event.clientY - box.top];
  }

  /// Sends `files` to the host, which keeps them in its cache folder, then drops them on `row`.
  function addFiles(key, files, row) {
    return enqueue(async () => {
      const ids = [];
      for (const file of files) {
        try {
          const response = await fetch(`file?name=${encodeURIComponent(file.name)}`, { method: 'POST', body: file });
          if (response.ok) ids.push((await response.json()).id);
          else showAlert(`${file.name}: ${(await response.text()).trim()}`);
        } catch (error) {
          showAlert(`${file.name}: ${error}`);
        }
      }
      if (ids.length) await send('list/drop', { key, files: ids.join(','), row });
    });
  }

  // --- State and events -------------------------------------------------------------------

  const watchers = [];

  function apply(next) {
    const before = state;
    state = next;
    for (const element of document.querySelectorAll('[data-p]')) {
      const value = state.values[element.dataset.p];
      if (value && !element.classList.contains('variant')) applyValue(element, value);
    }
    for (const variant of document.querySelectorAll('.variant')) applyVariant(variant);
    for (const busy of document.querySelectorAll('[data-busy]')) busy.hidden = !Number(state.props[busy.dataset.prop]);
    for (const element of document.querySelectorAll('[data-list]')) {
      const table = listOf(element);
      if (!table) continue;
      paintChecks(element, table);
      paintList(element, table);
      renderGrid(element, table);
      announceRows(element, before.lists[element.dataset.list], table);
      const { actions } = viewOf(element);
      if (actions) {
        // Shown once the list takes files; while it does not (an upload runs) the button rests.
        if (table.drops) actions.hidden = false;
        actions.querySelector('button').disabled = !table.drops;
      }
    }
    // The start and the end of an upload, once each.
    const uploading = Number(state.props[':isUploading']) === 1;
    if (':isUploading' in before.props && uploading !== (Number(before.props[':isUploading']) === 1)) {
      announce(uploading ? 'Upload started.' : 'Upload ended.');
    }
    restoreFocus();
    document.body.dataset.ready = 'true';
    for (const watcher of [...watchers]) watcher(state);
  }

  const offline = document.getElementById('offline');
  const events = new EventSource('events');
  for (const name of ['state', 'changed', 'propertyChanged', 'progress']) {
    events.addEventListener(name, (event) => apply(JSON.parse(event.data)));
  }
  events.addEventListener('alert', (event) => showAlert(JSON.parse(event.data).text));
  events.addEventListener('openUrl', (event) => {
    const address = JSON.parse(event.data).url;
    if (/^https?:\/\//.test(address)) window.open(address, '_blank', 'noopener,noreferrer');
  });
  // The gadget asks to be brought to the front: its window takes the focus, on the first field
  // that can take input.
  events.addEventListener('activate', () => {
    window.focus();
    if (!alertBox.hidden) return;
    focusWindow().scrollIntoView({ block: 'start' });
  });
  events.onopen = () => { offline.hidden = true; };
  events.onerror = () => { offline.hidden = events.readyState === EventSource.OPEN; };

  // For scripts that drive the page (the browser tests): the last state, a promise that settles
  // when everything posted so far has been answered, and a way to see every state that arrives.
  window.sorvelGadget = {
    get state() { return state; },
    idle: () => queue,
    watch: (watcher) => { watchers.push(watcher); },
  };
})();
