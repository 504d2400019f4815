// Keeps long lists out of the tab order except for the controls of one row. The arrow, page, Home and End keys move the
// focus to the same control of another row.

const ROWS_A_PAGE = 10;
const STEPS = { ArrowDown: 1, ArrowUp: -1, PageDown: ROWS_A_PAGE, PageUp: -ROWS_A_PAGE, Home: -Infinity, End: Infinity };

// `rows` is a selector of rows below the container, `controls` one of their buttons, which are made with tabindex -1.
export function rove(container, rows, controls) {
  let current = null;
  const isSeen = (row) => row !== null && row.isConnected && row.checkVisibility();
  const setCurrent = (row) => {
    current?.querySelectorAll(controls).forEach((control) => { control.tabIndex = -1; });
    current = row;
    row?.querySelectorAll(controls).forEach((control) => { control.tabIndex = 0; });
  };
  const seen = () => [...container.querySelectorAll(rows)].filter(isSeen);
  // After a search the first row is next, not one that was found on the way to it.
  const renew = () => {
    const isUsed = current?.contains(document.activeElement) && isSeen(current);
    if (!isUsed) setCurrent([...container.querySelectorAll(rows)].find(isSeen) ?? null);
  };
  let timer = 0;
  new MutationObserver((records) => {
    if (!records.some(({ type, target }) => type === "attributes" || target.localName === "ul")) return;
    timer ||= setTimeout(() => {
      timer = 0;
      renew();
    });
  }).observe(container, { childList: true, subtree: true, attributeFilter: ["hidden"] });
  container.addEventListener("focusin", (event) => {
    const row = event.target.closest(rows);
    if (row && row !== current) setCurrent(row);
  });
  container.addEventListener("keydown", (event) => {
    const step = STEPS[event.key];
    if (step === undefined || !event.target.matches(controls)) return;
    event.preventDefault();
    const all = seen();
    const at = Math.min(Math.max(all.indexOf(current) + step, 0), all.length - 1);
    const name = event.target.className;
    [...all[at].querySelectorAll(controls)].find((control) => control.className === name)?.focus();
  });
}
