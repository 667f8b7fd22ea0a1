'use strict';
// Fault switches for tests (only with the test-control option): per request path and method,
// never answer, answer late, answer a chosen status instead of handling the request, or (plain
// HTTP only) cut the answer's body in half.
const { isPlainObject } = require('./util');

class Faults {
  constructor() {
    this.rules = [];
    this.nextId = 1;
  }

  /**
   * Adds a rule from { path, method?, prefix?, action: "drop"|"delay"|"status"|"truncate", ms?, status?,
   * body?, handle?, times? }; returns it, or throws a text explaining what is wrong.
   */
  add(wanted) {
    if (!isPlainObject(wanted)) throw new Error('a JSON object is required');
    const { path, action } = wanted;
    if (typeof path !== 'string' || !path.startsWith('/')) throw new Error('path must start with "/"');
    if (!['drop', 'delay', 'status', 'truncate'].includes(action)) throw new Error('action must be drop, delay, status or truncate');
    const rule = {
      id: this.nextId++,
      path: normalize(path),
      prefix: wanted.prefix === true,
      method: typeof wanted.method === 'string' ? wanted.method.toLowerCase() : null,
      action,
      ms: Number.isFinite(wanted.ms) && wanted.ms >= 0 ? Math.min(wanted.ms, 600000) : 0,
      status: Number.isInteger(wanted.status) && wanted.status >= 100 && wanted.status <= 599 ? wanted.status : 500,
      body: wanted.body === undefined ? 'injected failure' : wanted.body,
      handle: wanted.handle !== false,
      times: Number.isInteger(wanted.times) && wanted.times > 0 ? wanted.times : null,
      hits: 0,
    };
    if (action === 'delay' && !(rule.ms > 0)) throw new Error('delay needs ms > 0');
    this.rules.push(rule);
    return rule;
  }

  remove(id) {
    const before = this.rules.length;
    this.rules = this.rules.filter((r) => r.id !== id);
    return before !== this.rules.length;
  }

  clear() {
    this.rules = [];
  }

  /** The rule that applies to this request (and counts it), or null. */
  match(method, url) {
    if (this.rules.length === 0) return null;
    const q = url.indexOf('?');
    const path = normalize(q < 0 ? url : url.slice(0, q));
    for (const rule of this.rules) {
      if (rule.method && rule.method !== method) continue;
      if (rule.prefix ? !path.startsWith(rule.path) : path !== rule.path) continue;
      rule.hits += 1;
      if (rule.times !== null && rule.hits >= rule.times) this.remove(rule.id);
      return rule;
    }
    return null;
  }
}

function normalize(p) {
  return p.length > 1 ? p.replace(/\/+$/, '') : p;
}

module.exports = { Faults };
