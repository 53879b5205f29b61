// What the command has put on the page: runs, their rows, and figures of rows over time.

/** What is packed in the element: compressed, and in the letters of Base64; or nothing. */
async function unpacked(id) {
  const letters = atob(document.getElementById(id).textContent.trim());
  const bytes = new Uint8Array(letters.length);
  for (let i = 0; i < bytes.length; ++i) bytes[i] = letters.charCodeAt(i);
  if (bytes.length === 0) return bytes;
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('deflate'));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

/** Numbers of seven bits a byte, the lowest first. */
class Numbers {
  constructor(bytes) {
    this.bytes = bytes;
    this.at = 0;
  }

  next() {
    let number = 0;
    for (let factor = 1;; factor *= 128) {
      const byte = this.bytes[this.at++];
      number += (byte & 127) * factor;
      if (byte < 128) return number;
    }
  }

  /** Rows of numbers that are given as changes. */
  matrix(rows, columns) {
    const matrix = new Float64Array(rows * columns);
    const {bytes} = this;
    for (let row = 0; row < rows; ++row) {
      let value = 0;
      for (let i = row * columns; i < (row + 1) * columns; ++i) {
        const change = bytes[this.at] < 128 ? bytes[this.at++] : this.next();
        // Odd numbers are -1, -2 and so on.
        value += change % 2 === 0 ? change / 2 : -(change + 1) / 2;
        matrix[i] = value;
      }
    }
    return matrix;
  }
}

/** A run of the program. Rows are those lines and stacks that have held most, and rests. */
class Run {
  constructor(facts, bytes) {
    Object.assign(this, facts);
    this.hasLevels = bytes.length !== 0;
    if (this.hasLevels) {
      this.readLevels(new Numbers(bytes));
    } else {
      this.begin = 0;
      this.end = facts.last;
      this.moments = [facts.peak, facts.last];
      this.peak_moment = 0;
    }
    this.last_moment = this.moments.length - 1;
  }

  readLevels(numbers) {
    const rows = this.rows.length;
    const steps = numbers.next();
    this.stepBytes = this.at_peak[0] / steps;
    this.levels = numbers.matrix(rows, this.buckets);
    this.exact = numbers.matrix(rows * 4, this.moments.length);
    this.unread = numbers;
  }

  /** How much more than its level each row had at most in a bucket; few ever ask. */
  get mores() {
    this.readMores ??= this.unread.matrix(this.rows.length, this.buckets);
    return this.readMores;
  }

  /** The time at which a bucket ends. */
  timeOf(bucket) {
    return this.begin + (this.end - this.begin) * (bucket + 1) / this.buckets;
  }

  bucketOf(time) {
    const part = (time - this.begin) / Math.max(this.end - this.begin, 1);
    return Math.min(Math.max(Math.ceil(part * this.buckets) - 1, 0), this.buckets - 1);
  }

  /** Bytes and blocks that are live behind a moment. */
  live(row, moment) {
    const {at_peak: atPeak, live} = this.rows[row];
    // Without events it is not known how many blocks there were at the peak.
    if (!this.hasLevels) return moment === this.peak_moment ? [atPeak[0], Number.NaN] : live;
    if (moment === this.peak_moment) return atPeak;
    return [this.figure(row, 0, moment), this.figure(row, 1, moment)];
  }

  /** Bytes and blocks that were made until a moment; none before the first one, which is -1. */
  made(row, moment) {
    if (moment < 0) return [0, 0];
    if (!this.hasLevels) return this.rows[row].made;
    return [this.figure(row, 2, moment), this.figure(row, 3, moment)];
  }

  figure(row, which, moment) {
    return this.exact[(row * 4 + which) * this.moments.length + moment];
  }

  /** The moment that is nearest to a time. */
  momentAt(time) {
    let nearest = 0;
    for (let i = 1; i < this.moments.length; ++i) {
      if (Math.abs(this.moments[i] - time) < Math.abs(this.moments[nearest] - time)) nearest = i;
    }
    return nearest;
  }
}

/** The name of a handle with its tag. */
export function handleName(handle) {
  return handle.tag === '' ? `${handle.number}` : `${handle.number} ${handle.tag}`;
}

/** All that the page is about. */
export async function readData() {
  const facts = JSON.parse(new TextDecoder().decode(await unpacked('facts')));
  const runs = [];
  for (let i = 0; i < facts.runs.length; ++i) {
    runs.push(new Run(facts.runs[i], await unpacked(`levels-${i}`)));
  }
  return {runs, lines: facts.lines, handles: facts.handles, frames: facts.frames};
}
