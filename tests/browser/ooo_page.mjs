// The out-of-office page in a real headless chromium: sign in, see the
// task's validation message for a return date in the past, switch
// out-of-office on with dates and a two-line message, reload and see it
// stored, and see a group's status. A screenshot of the page is kept in the
// output folder.
//
//   node ooo_page.mjs URL OUTPUT_DIR
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import puppeteer from "puppeteer-core";

const [url, outputDir] = process.argv.slice(2);
const profile = mkdtempSync(join(tmpdir(), "tarnwick-chromium-"));
const failures = [];

function check(condition, what) {
  if (!condition) failures.push(what);
  console.log((condition ? "ok   " : "FAIL ") + what);
}

// Text of a date in the page's own format ("MM/DD/YYYY" and the like).
function dateText(format, when) {
  const parts = { YYYY: String(when.getFullYear()), MM: String(when.getMonth() + 1).padStart(2, "0"),
                  DD: String(when.getDate()).padStart(2, "0") };
  return format.replace(/YYYY|MM|DD/g, (p) => parts[p]);
}

const daysFromNow = (days) => new Date(Date.now() + days * 86400000);

async function fill(page, selector, text) {
  await page.$eval(selector, (e) => { e.value = ""; });
  await page.type(selector, text);
}

const browser = await puppeteer.launch({
  executablePath: "/usr/bin/chromium",
  headless: true,
  userDataDir: profile,
  args: ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync"],
});
try {
  const page = await browser.newPage();
  await page.setViewport({ width: 1100, height: 1300 });
  page.setDefaultTimeout(30000);
  const external = [];
  page.on("request", (request) => {
    if (!request.url().startsWith(url) && !request.url().startsWith("data:")) external.push(request.url());
  });

  await page.goto(url, { waitUntil: "networkidle0" });
  await page.waitForSelector("#signin-section:not([hidden])");
  await page.type("#signin-name", "jdoe");
  await page.type("#signin-password", process.env.TARNWICK_DEMO_PASSWORD || "acme-demo");
  await page.click("#signin-button");
  await page.waitForSelector("#own-section:not([hidden])");
  await page.waitForFunction(() => document.querySelector("#leave-date").value !== "");
  const format = await page.$eval(".date-format", (e) => e.textContent);
  check(/YYYY/.test(format), "the page shows the server's date format (" + format + ")");

  // Switching on with a return date in the past: the task's message.
  await page.click("#enable-on");
  await fill(page, "#leave-date", dateText(format, daysFromNow(-4)));
  await fill(page, "#leave-time", "08:00");
  await fill(page, "#back-date", dateText(format, daysFromNow(-2)));
  await fill(page, "#back-time", "09:00");
  await page.click("#save");
  await page.waitForFunction(() => document.querySelector("#ooo-error").textContent !== "" ||
                                   document.querySelector("#ooo-ok").textContent !== "");
  const error = await page.$eval("#ooo-error", (e) => e.textContent);
  check(error === "The return date must be in the future.", "a past return date shows the task's message: " + error);
  await page.screenshot({ path: join(outputDir, "ooo-page-validation.png"), fullPage: true });

  const message = "I am at the Acme fair this week.\nMaria Garcia answers for sales meanwhile.";
  await fill(page, "#leave-date", dateText(format, daysFromNow(1)));
  await fill(page, "#back-date", dateText(format, daysFromNow(6)));
  await fill(page, "#subject", "At the Acme fair");
  await fill(page, "#message", message);
  await page.click("#save");
  await page.waitForFunction(() => document.querySelector("#ooo-ok").textContent !== "" ||
                                   document.querySelector("#ooo-error").textContent !== "");
  check(await page.$eval("#ooo-ok", (e) => e.textContent) === "Saved.",
        "saving works: " + await page.$eval("#ooo-error", (e) => e.textContent));

  await page.reload({ waitUntil: "networkidle0" });
  await page.waitForFunction(() => document.querySelector("#subject").value === "At the Acme fair");
  check(await page.$eval("#enable-on", (e) => e.checked), "after a reload out-of-office is on");
  check(await page.$eval("#message", (e) => e.value) === message, "after a reload the two-line message is stored");
  check(await page.$eval("#back-date", (e) => e.value) === dateText(format, daysFromNow(6)),
        "after a reload the return date is stored");
  await page.screenshot({ path: join(outputDir, "ooo-page.png"), fullPage: true });

  await page.goto(url + "status?name=Sales", { waitUntil: "networkidle0" });
  await page.waitForSelector("#status-table:not([hidden])");
  const rows = await page.$$eval("#status-table tbody tr", (r) => r.map((row) => row.textContent));
  check(rows.length >= 2 && rows.some((r) => r.includes("Out of office")), "the group's status lists its members");
  await page.screenshot({ path: join(outputDir, "status-page.png"), fullPage: true });
  check(external.length === 0, "the page loads nothing from outside: " + external.join(", "));
} catch (error) {
  failures.push(String(error));
  console.log("FAIL " + error);
} finally {
  await browser.close();
  rmSync(profile, { recursive: true, force: true });
}
if (failures.length > 0) {
  console.log(failures.length + " check(s) failed");
  process.exit(1);
}
console.log("browser test passed; screenshots in " + outputDir);
