// Figures as the command writes them.

const UNITS = ['KiB', 'MiB', 'GiB', 'TiB', 'PiB', 'EiB'];

/** "1,240"; "-" for what is not known. */
export function countText(count) {
  if (Number.isNaN(count)) return '-';
  return Math.round(count).toString().replace(/\B(?=(\d{3})+(?!\d))/g, ',');
}

function withTenths(tenths) {
  return `${countText(Math.floor(tenths / 10))}.${tenths % 10}`;
}

/** "34.5 KiB". */
export function sizeText(bytes) {
  if (bytes < 0) return `-${sizeText(-bytes)}`;
  if (bytes < 1024) return `${countText(bytes)} B`;
  let unit = 0;
  let tenths = Math.round(bytes / 1024 * 10);
  while (tenths >= 10240 && unit + 1 < UNITS.length) {
    tenths = Math.round(bytes / 1024 ** (++unit + 1) * 10);
  }
  return `${withTenths(tenths)} ${UNITS[unit]}`;
}

/** "12%", "<1%", or "-" of nothing. */
export function shareText(part, whole) {
  if (part === 0) return '0%';
  if (whole === 0) return '-';
  if (part / whole < 0.01) return '<1%';
  const percent = Math.round(100 * part / whole);
  return `${part < whole && percent >= 100 ? 99 : countText(percent)}%`;
}

/** "2.4 s" for nanoseconds. */
export function durationText(nanoseconds) {
  if (nanoseconds < 1e3) return `${Math.round(nanoseconds)} ns`;
  if (nanoseconds < 1e6) return `${(nanoseconds / 1e3).toFixed(1)} us`;
  if (nanoseconds < 1e9) return `${(nanoseconds / 1e6).toFixed(1)} ms`;
  return `${(nanoseconds / 1e9).toFixed(1)} s`;
}

/** What has become more, with its sign. */
export function changeText(change, text) {
  if (change === 0) return text(0);
  return `${change < 0 ? '-' : '+'}${text(Math.abs(change))}`;
}

/** "1 block", "1,240 blocks". */
export function counted(count, what) {
  return `${countText(count)} ${what}${count === 1 ? '' : 's'}`;
}
