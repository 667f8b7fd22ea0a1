'use strict';
// Small helpers shared by the request handlers.
const crypto = require('node:crypto');

const ALPHABET = 'abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789';

/** A random identifier of `n` letters and digits. */
function newId(n = 10) {
  const bytes = crypto.randomBytes(n);
  let out = '';
  for (let i = 0; i < n; i++) out += ALPHABET[bytes[i] % ALPHABET.length];
  return out;
}

function newToken() {
  return crypto.randomBytes(24).toString('hex');
}

/** An error that becomes an answer with this status and a text body. */
class HttpError extends Error {
  constructor(status, text) {
    super(text);
    this.status = status;
  }
}

const fail = (status, text) => new HttpError(status, text);

function isPlainObject(v) {
  return v !== null && typeof v === 'object' && !Array.isArray(v) && !Buffer.isBuffer(v);
}

/** Timestamps travel as "yyyy-MM-dd'T'HH:mm:ss.SSS'Z'" in UTC. */
function isoNow() {
  return new Date().toISOString();
}

/** Parses a timestamp text (ISO 8601, as clients send it); null when empty or "(null)". */
function parseDate(text, what) {
  if (text === undefined || text === null || text === '' || text === '(null)') return null;
  const t = Date.parse(String(text));
  if (Number.isNaN(t)) throw fail(400, `${what} is not a date: ${String(text).slice(0, 64)}`);
  return new Date(t).toISOString();
}

/** Reads a non-negative integer query value; `def` when absent. */
function intParam(params, name, def, max = Number.MAX_SAFE_INTEGER) {
  const raw = params.get(name);
  if (raw === null || raw === '') return def;
  if (!/^-?\d+$/.test(raw.trim())) throw fail(400, `${name} must be an integer`);
  const v = Number(raw);
  if (v < 0) throw fail(400, `${name} must not be negative`);
  return Math.min(v, max);
}

/** Reads a flag that clients send as a number, a boolean or a text. */
function truthy(v) {
  if (typeof v === 'string') return v === '1' || v.toLowerCase() === 'true' || v.toLowerCase() === 'yes';
  return v === true || (typeof v === 'number' && v !== 0);
}

/** Splits "/a/b?x=1&&y=2" into path and parameters; "&&"-joined queries read like "&". */
function splitUrl(url) {
  const q = url.indexOf('?');
  const rawPath = q < 0 ? url : url.slice(0, q);
  const query = q < 0 ? '' : url.slice(q + 1);
  let path;
  try {
    path = decodeURI(rawPath);
  } catch {
    throw fail(400, 'malformed url');
  }
  return { path, params: new URLSearchParams(query) };
}

/** Whether `v` nests objects and arrays at most `max` levels deep (walked without recursion). */
function nestedWithin(v, max) {
  const stack = [[v, 0]];
  while (stack.length) {
    const [x, depth] = stack.pop();
    if (x === null || typeof x !== 'object') continue;
    if (depth >= max) return false;
    for (const k in x) stack.push([x[k], depth + 1]);
  }
  return true;
}

/** A short text for an error message, whatever the client sent (objects may have any keys). */
function shown(v, max = 64) {
  return typeof v === 'string' || typeof v === 'number' ? String(v).slice(0, max) : `(${v === null ? 'null' : typeof v})`;
}

/** A value that compares safely with < and >: texts and numbers as they are, anything else as ''. */
function comparable(v) {
  return typeof v === 'string' || typeof v === 'number' ? v : '';
}

/** A null-prototype copy of a map held in a plain object (its keys are client ids, "__proto__" included). */
function dict(from) {
  const d = Object.create(null);
  if (from) for (const k of Object.keys(from)) d[k] = from[k];
  return d;
}

function once(fn) {
  let done = false;
  return (...args) => {
    if (done) return false;
    done = true;
    fn(...args);
    return true;
  };
}

module.exports = {
  newId, newToken, HttpError, fail, isPlainObject, isoNow, parseDate, intParam, truthy, splitUrl, once,
  nestedWithin, shown, comparable, dict,
};
