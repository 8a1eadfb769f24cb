// The out-of-office page: sign-in, the signed-in person's own state and the
// status of a person or group, all through the JSON API of this server.
// Every text from the server is put into the page with textContent.
"use strict";

const state = { csrf: "", user: "", format: null };
const $ = (id) => document.getElementById(id);

async function api(method, url, body) {
  const headers = { "Accept": "application/json" };
  if (body !== undefined) headers["Content-Type"] = "application/json";
  if (state.csrf && method !== "GET") headers["X-CSRF-Token"] = state.csrf;
  const response = await fetch(url, {
    method, headers, credentials: "same-origin",
    body: body === undefined ? undefined : JSON.stringify(body),
  });
  let data = {};
  try { data = await response.json(); } catch (e) { data = {}; }
  return { status: response.status, ok: response.ok, data };
}

function show(sectionId) {
  for (const id of ["signin-section", "own-section", "status-section"]) $(id).hidden = id !== sectionId;
}

// The server's date and time format, from the reply's international values.
function formatOf(user) {
  const flags = parseInt(user.DateFlag || "0", 10);
  const order = (flags & 0x80) ? "YMD" : (flags & 0x40) ? "DMY" : "MDY";
  return {
    order, dateSep: user.DateString || "/", timeSep: user.TimeString || ":",
    clock24: (flags & 0x08) !== 0, am: user.AMString || "AM", pm: user.PMString || "PM",
  };
}

const pad = (n, width) => String(n).padStart(width, "0");

function describeDateFormat(f) {
  const names = { Y: "YYYY", M: "MM", D: "DD" };
  return f.order.split("").map((c) => names[c]).join(f.dateSep);
}

function formatDate(f, y, m, d) {
  const parts = { Y: pad(y, 4), M: pad(m, 2), D: pad(d, 2) };
  return f.order.split("").map((c) => parts[c]).join(f.dateSep);
}

function formatTime(f, h, min) {
  if (f.clock24) return pad(h, 2) + f.timeSep + pad(min, 2);
  const suffix = h < 12 ? f.am : f.pm;
  return (h % 12 === 0 ? 12 : h % 12) + f.timeSep + pad(min, 2) + " " + suffix;
}

function parseDate(f, text) {
  const pieces = text.trim().split(/[^0-9]+/).filter((p) => p !== "");
  if (pieces.length !== 3) return null;
  const value = {};
  f.order.split("").forEach((c, i) => { value[c] = parseInt(pieces[i], 10); });
  return value;
}

function parseTime(f, text) {
  const trimmed = text.trim();
  const match = trimmed.match(/^(\d{1,2})\D(\d{2})(?:\D(\d{2}))?\s*(.*)$/);
  if (!match) return null;
  let hour = parseInt(match[1], 10);
  const minute = parseInt(match[2], 10);
  const suffix = match[4].trim().toUpperCase();
  if (suffix) {
    if (suffix === f.pm.toUpperCase() && hour < 12) hour += 12;
    else if (suffix === f.am.toUpperCase() && hour === 12) hour = 0;
  }
  return { h: hour, min: minute };
}

function fillOwn(user) {
  state.format = formatOf(user);
  const f = state.format;
  document.querySelectorAll(".date-format").forEach((e) => { e.textContent = describeDateFormat(f); });
  document.querySelectorAll(".time-format").forEach((e) => { e.textContent = formatTime(f, 9, 30); });
  $("enable-on").checked = user.OOOEnable === "1";
  $("enable-off").checked = user.OOOEnable !== "1";
  $("leave-date").value = formatDate(f, user.StartTimeYear, user.StartTimeMonth, user.StartTimeDay);
  $("leave-time").value = formatTime(f, +user.StartTimeHour, +user.StartTimeMin);
  $("back-date").value = formatDate(f, user.EndTimeYear, user.EndTimeMonth, user.EndTimeDay);
  $("back-time").value = formatTime(f, +user.EndTimeHour, +user.EndTimeMin);
  $("subject").value = user.Subject || "";
  $("message").value = user.Message || "";
  $("show-hours").checked = user.ShowHours === "1";
  $("append-subject").checked = user.AppendSubject === "1";
  $("exclude-internet").checked = user.InternetAddress === "1";
  const list = $("notified");
  list.replaceChildren();
  const names = (user.Notified || "").split(";").filter((n) => n !== "");
  if (names.length === 0) {
    const item = document.createElement("li");
    item.textContent = "Nobody yet.";
    list.appendChild(item);
  }
  for (const name of names) {
    const item = document.createElement("li");
    item.textContent = name;
    list.appendChild(item);
  }
}

async function loadOwn() {
  show("own-section");
  $("ooo-error").textContent = "";
  const answer = await api("GET", "/api/v1/users/me/ooo");
  if (!answer.ok) {
    $("ooo-error").textContent = answer.data.error || ("Error " + answer.status);
    return;
  }
  fillOwn(answer.data);
}

function changeFromForm() {
  const f = state.format;
  const leaveDate = parseDate(f, $("leave-date").value);
  const backDate = parseDate(f, $("back-date").value);
  const leaveTime = parseTime(f, $("leave-time").value);
  const backTime = parseTime(f, $("back-time").value);
  if (!leaveDate || !backDate) throw new Error("Write the dates as " + describeDateFormat(f) + ".");
  if (!leaveTime || !backTime) throw new Error("Write the times as " + formatTime(f, 9, 30) + ".");
  const append = $("append-subject").checked ? "1" : "0";
  return {
    OOOEnable: $("enable-on").checked ? "1" : "0",
    Subject: $("subject").value,
    Message: $("message").value,
    ShowHours: $("show-hours").checked ? "1" : "0",
    AppendSubject: append, ASDEnable: "1",
    InternetAddress: $("exclude-internet").checked ? "1" : "0",
    StartTimeYear: leaveDate.Y, StartTimeMonth: leaveDate.M, StartTimeDay: leaveDate.D,
    StartTimeHour: leaveTime.h, StartTimeMin: leaveTime.min, StartTimeSec: 0,
    EndTimeYear: backDate.Y, EndTimeMonth: backDate.M, EndTimeDay: backDate.D,
    EndTimeHour: backTime.h, EndTimeMin: backTime.min, EndTimeSec: 0,
  };
}

async function saveOwn(event) {
  event.preventDefault();
  $("ooo-error").textContent = "";
  $("ooo-ok").textContent = "";
  let change;
  try { change = changeFromForm(); } catch (e) { $("ooo-error").textContent = e.message; return; }
  $("save").disabled = true;
  const answer = await api("PUT", "/api/v1/users/me/ooo", change);
  $("save").disabled = false;
  if (!answer.ok) {
    $("ooo-error").textContent = answer.data.error || ("Error " + answer.status);
    return;
  }
  fillOwn(answer.data);
  $("ooo-ok").textContent = "Saved.";
}

function cell(row, text) {
  const td = document.createElement("td");
  td.textContent = text;
  row.appendChild(td);
}

async function showStatus(event) {
  if (event) event.preventDefault();
  const name = $("status-name").value.trim();
  $("status-error").textContent = "";
  if (!name) return;
  const answer = await api("GET", "/api/v1/status?name=" + encodeURIComponent(name));
  const table = $("status-table");
  const body = table.querySelector("tbody");
  body.replaceChildren();
  if (!answer.ok) {
    table.hidden = true;
    $("status-error").textContent = answer.data.error || ("Error " + answer.status);
    return;
  }
  for (const user of answer.data.users) {
    const row = document.createElement("tr");
    if (user.User_Status !== "1") {
      row.className = "failed";
      cell(row, user.User);
      cell(row, "Error: " + (user.ErrorMsg || "unknown"));
      cell(row, ""); cell(row, ""); cell(row, "");
    } else {
      const f = formatOf(user);
      cell(row, user.User);
      cell(row, user.OOOEnable === "1" ? "Out of office" : "In");
      cell(row, formatDate(f, user.StartTimeYear, user.StartTimeMonth, user.StartTimeDay) + " " +
        formatTime(f, +user.StartTimeHour, +user.StartTimeMin));
      cell(row, formatDate(f, user.EndTimeYear, user.EndTimeMonth, user.EndTimeDay) + " " +
        formatTime(f, +user.EndTimeHour, +user.EndTimeMin));
      cell(row, user.Subject || "");
    }
    body.appendChild(row);
  }
  table.hidden = false;
}

async function signIn(event) {
  event.preventDefault();
  $("signin-error").textContent = "";
  const answer = await api("POST", "/api/v1/session",
    { name: $("signin-name").value, password: $("signin-password").value });
  if (!answer.ok) {
    $("signin-error").textContent = answer.data.error || ("Error " + answer.status);
    return;
  }
  $("signin-password").value = "";
  await start();
}

async function signOut() {
  await api("DELETE", "/api/v1/session");
  state.csrf = "";
  window.location.assign("/");
}

async function start() {
  const session = await api("GET", "/api/v1/session");
  if (!session.ok) {
    $("nav").hidden = true;
    show("signin-section");
    return;
  }
  state.csrf = session.data.csrf;
  state.user = session.data.user;
  $("who").textContent = session.data.display;
  $("nav").hidden = false;
  if (window.location.pathname === "/status") {
    show("status-section");
    const asked = new URLSearchParams(window.location.search).get("name");
    if (asked) { $("status-name").value = asked; await showStatus(); }
  } else {
    await loadOwn();
  }
}

document.addEventListener("DOMContentLoaded", () => {
  $("signin-form").addEventListener("submit", signIn);
  $("ooo-form").addEventListener("submit", saveOwn);
  $("status-form").addEventListener("submit", showStatus);
  $("signout").addEventListener("click", signOut);
  start();
});
