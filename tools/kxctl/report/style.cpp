// The style of the page: on a screen in light and dark mode, on a phone, and on paper.
#include "report/style.hpp"

namespace kx::ctl::page {

const std::string_view kReportHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8"/>
<meta name="viewport" content="width=device-width, initial-scale=1"/>
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'"/>
<meta name="color-scheme" content="light dark"/>
)";

const std::string_view kReportStyle = R"(<style>
:root { --ink: #1d2733; --dim: #5b6b7c; --paper: #f4f6f8; --sheet: #ffffff; --line: #d5dde5;
  --accent: #1f6feb; --good: #1a7f4b; --bad: #c0362c; --boot: #4c78a8; --config: #e39a2d;
  --firmware: #59a06a; }
@media (prefers-color-scheme: dark) { :root { --ink: #e4eaf0; --dim: #9aa8b6; --paper: #12171d;
  --sheet: #1b222a; --line: #333e4a; --accent: #6aa6ff; --good: #4cc38a; --bad: #ff7b72;
  --boot: #7aa6d6; --config: #f0b455; --firmware: #7cc48c; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--paper); color: var(--ink);
  font: 16px/1.45 system-ui, sans-serif; }
main, header { max-width: 72rem; margin: 0 auto; padding: 1rem; }
h1 { margin: 0; font-size: 1.6rem; overflow-wrap: anywhere; }
h2 { margin: 0 0 .75rem; font-size: 1.25rem; overflow-wrap: anywhere; }
h3 { margin: 1.5rem 0 .5rem; font-size: 1rem; color: var(--dim); }
header p, .note { color: var(--dim); margin: .25rem 0; }
section { background: var(--sheet); border: 1px solid var(--line); border-radius: .6rem;
  padding: 1rem; margin-bottom: 1rem; }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; }
th, td { text-align: left; padding: .3rem 1rem .3rem 0; border-bottom: 1px solid var(--line);
  vertical-align: baseline; overflow-wrap: anywhere; }
th:last-child, td:last-child { padding-right: 0; }
th { color: var(--dim); font-weight: 600; font-size: .85em; white-space: nowrap; }
td.n, th.n { text-align: right; white-space: nowrap; }
td.bar, th.bar { width: 30%; min-width: 3rem; }
.narrow td:first-child { overflow-wrap: break-word; } details { overflow-x: auto; }
svg { display: block; width: 100%; }
.bar svg { height: .7rem; } .bar rect { fill: var(--accent); }
.counters { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(26rem, 100%), 1fr));
  gap: 0 2rem; align-items: start; }
.flash svg { height: 2.6rem; border: 1px solid var(--line); }
.boot { fill: var(--boot); background: var(--boot); }
.config { fill: var(--config); background: var(--config); }
.firmware { fill: var(--firmware); background: var(--firmware); }
.chip { display: inline-block; width: .8rem; height: .8rem; border-radius: .2rem; }
.good { color: var(--good); font-weight: 600; } .bad { color: var(--bad); font-weight: 600; }
.problems { margin: 0; padding-left: 1.25rem; overflow-wrap: anywhere; }
.problems a { color: var(--bad); } :target { outline: 2px solid var(--accent); }
.failure { color: var(--bad); overflow-wrap: anywhere; }
dl { display: grid; grid-template-columns: repeat(auto-fill, minmax(10rem, 1fr)); gap: .75rem;
  margin: 0; }
dt { color: var(--dim); font-size: .85em; } dd { margin: 0; overflow-wrap: anywhere; }
summary { cursor: pointer; color: var(--dim); font-weight: 600; margin: 1rem 0 .25rem; }
@media (max-width: 40rem) { main, header { padding: .5rem; } section { padding: .75rem; }
  th.bar { font-size: 0; } td.bar, th.bar { width: 20%; }
  .wide thead { display: none; } .wide tbody, .wide tr, .wide td { display: block; }
  .wide tr { border-bottom: 1px solid var(--line); padding: .4rem 0; }
  .wide td, .wide td.n { border: 0; padding: .1rem 0; text-align: right; white-space: normal; }
  .wide td::before { content: attr(data-title); float: left; margin-right: 1rem;
    color: var(--dim); font-weight: 400; } }
@media print { :root { --ink: #000; --dim: #444; --paper: #fff; --sheet: #fff; --line: #bbb;
  --accent: #1f6feb; --good: #1a7f4b; --bad: #c0362c; --boot: #4c78a8; --config: #e39a2d;
  --firmware: #59a06a; }
  @page { margin: 14mm; }
  body { font-size: 9pt; } main, header { max-width: none; padding: 0; }
  section { border: 0; border-top: 1.5pt solid var(--dim); border-radius: 0; padding: .75rem 0; }
  h2, h3, summary, .flash { break-after: avoid; }
  tr, dl, .flash, .counters details { break-inside: avoid; }
  .counters { grid-template-columns: 1fr 1fr; }
  details { overflow: visible; }
  details::details-content { content-visibility: visible; block-size: auto; }
  * { print-color-adjust: exact; -webkit-print-color-adjust: exact; } }
</style>
)";

}  // namespace kx::ctl::page
