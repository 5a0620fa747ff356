#pragma once

namespace host::output {

/// What a page begins with: its title, time and style sheet. It may load nothing and run nothing.
inline constexpr const char* pageHead = R"(<!DOCTYPE html>
<html lang="en" xmlns="http://www.w3.org/1999/xhtml">
<head>
<meta charset="utf-8"/>
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'"/>
<meta name="viewport" content="width=device-width, initial-scale=1"/>
<meta name="color-scheme" content="light dark"/>
<title>{}, {}</title>
<style>{}</style>
</head>
<body>
<a class="skip" href="#main">Skip to the content</a>
)";

inline constexpr const char* pageStyle = R"(
:root { color-scheme: light dark; --paper: #f6f7f9; --card: #fff; --ink: #1f2933; --faint: #52606d; --line: #d5dbe1;
  --link: #0b5cad; --good: #1b6e3c; --good-back: #e3f4e8; --fair: #7a4f00; --fair-back: #fdf1d8; --bad: #b3261e;
  --bad-back: #fbe9e7; --plain-back: #eaeef2; --interface: #e3f0fa; }
@media (prefers-color-scheme: dark) {
  :root { --paper: #12161b; --card: #1b2128; --ink: #e4e9ee; --faint: #a3b0bd; --line: #38424d; --link: #7db8f5;
    --good: #7fd6a0; --good-back: #163524; --fair: #f0c36c; --fair-back: #3a2c0c; --bad: #ff9d94; --bad-back: #46191a;
    --plain-back: #2a323b; --interface: #17324a; }
}
* { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; }
body { margin: 0 auto; max-width: 76rem; padding: 1rem; background: var(--paper); color: var(--ink);
  font: 1rem/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Helvetica Neue", Arial, sans-serif; }
a { color: var(--link); }
:focus-visible { outline: 3px solid var(--link); outline-offset: 2px; }
.skip { position: absolute; left: -100rem; }
.skip:focus { left: 1rem; top: 1rem; padding: .5rem 1rem; background: var(--card); z-index: 1; }
h1 { font-size: 1.6rem; line-height: 1.2; margin: .5rem 0 0; overflow-wrap: anywhere; }
h2 { font-size: 1.2rem; margin: 0 0 .75rem; }
h3 { font-size: 1rem; margin: 1.5rem 0 .5rem; }
h2 + h3 { margin-top: 0; }
header p { color: var(--faint); margin: .25rem 0 1rem; overflow-wrap: anywhere; }
nav ul { display: flex; flex-wrap: wrap; gap: .25rem 1rem; list-style: none; margin: 0 0 1rem; padding: 0; }
nav a { display: inline-block; padding: .25rem 0; }
section { background: var(--card); border: 1px solid var(--line); border-radius: .6rem; padding: 1rem; margin: 0 0 1rem; }
code, pre { font-family: ui-monospace, SFMono-Regular, Menlo, Consolas, "Liberation Mono", monospace; font-size: .9em; }
pre { margin: 0; padding: .75rem; line-height: 1.4; }
.scroll { overflow: auto; max-height: 80vh; border: 1px solid var(--line); border-radius: .4rem; margin: 0 0 .75rem; }
table { border-collapse: collapse; width: 100%; font-size: .92rem; font-variant-numeric: tabular-nums; }
caption { text-align: left; color: var(--faint); padding: .5rem .6rem; }
th, td { text-align: left; vertical-align: top; padding: .35rem .6rem; border-top: 1px solid var(--line); }
thead th { border-top: 0; border-bottom: 2px solid var(--line); white-space: nowrap; }
tbody th { font-weight: 600; }
td code, th code { white-space: nowrap; }
tbody tr:nth-child(even) { background: var(--paper); }
details { margin: 0 0 .75rem; }
summary { cursor: pointer; color: var(--link); padding: .25rem 0; }
.more { color: var(--faint); margin: 0 0 .75rem; }
.badge { display: inline-block; padding: 0 .5em; border-radius: 1em; font-size: .85rem; font-weight: 600; white-space: nowrap;
  background: var(--plain-back); border: 1px solid transparent; }
.badge.good { background: var(--good-back); color: var(--good); }
.badge.fair { background: var(--fair-back); color: var(--fair); }
.badge.bad { background: var(--bad-back); color: var(--bad); border-color: currentColor; }
.tiles { display: grid; grid-template-columns: repeat(auto-fill, minmax(8.5rem, 1fr)); gap: .6rem; margin: 0 0 1rem; }
.tiles div { border: 1px solid var(--line); border-radius: .4rem; padding: .5rem .75rem; display: flex; flex-direction: column-reverse; }
.tiles dt { color: var(--faint); font-size: .85rem; }
.tiles dd { margin: 0; font-size: 1.5rem; font-weight: 650; line-height: 1.2; font-variant-numeric: tabular-nums; }
.tiles .bad { background: var(--bad-back); border-color: var(--bad); }
.tiles .bad dt, .tiles .bad dd { color: var(--bad); }
.tiles .good dd { color: var(--good); }
.findings { list-style: none; margin: 0; padding: 0; }
.findings li { padding: .3rem 0; border-top: 1px solid var(--line); overflow-wrap: anywhere; }
.facts { display: grid; grid-template-columns: max-content 1fr; gap: .25rem 1rem; margin: 0; }
.facts dt { color: var(--faint); }
.facts dd { margin: 0; overflow-wrap: anywhere; }
figure { margin: 0 0 .75rem; }
figcaption { color: var(--faint); font-size: .92rem; }
.picture { background: var(--card); padding: .5rem; }
.picture svg { display: block; width: 100%; height: auto; max-width: var(--width); min-width: min(var(--width), 60rem); }
.picture .node path, .picture .node polygon { stroke: var(--ink); fill: var(--card); }
.picture .node.interface polygon { fill: var(--interface); }
.picture .node text { fill: var(--ink); }
.picture .node.fault path, .picture .node.fault polygon { stroke: var(--bad); fill: var(--bad-back); }
.picture .node.fault text { fill: var(--bad); }
.picture .edge text, .picture .edge polygon { stroke: none; }
.picture .inForce path { stroke: var(--good); } .picture .inForce polygon, .picture .inForce text { fill: var(--good); }
.picture .waiting path { stroke: var(--fair); } .picture .waiting polygon, .picture .waiting text { fill: var(--fair); }
.picture .unresolved path, .picture .unresolved polyline { stroke: var(--bad); }
.picture .unresolved polygon, .picture .unresolved text { fill: var(--bad); }
.picture .edge.unresolved polygon { stroke: var(--bad); }
@media (max-width: 40rem) {
  body { padding: .6rem; }
  section { padding: .75rem; }
  th, td { padding: .3rem .45rem; }
  .why { display: inline-block; min-width: 11rem; }
}
@media print {
  :root { color-scheme: light; --paper: #fff; --card: #fff; --ink: #000; --faint: #333; --line: #bbb; --link: #000;
    --good: #14522c; --fair: #5c3b00; --bad: #8c1d18; --good-back: #fff; --fair-back: #fff; --bad-back: #fff;
    --plain-back: #fff; --interface: #fff; }
  @page { margin: 15mm; }
  body { max-width: none; padding: 0; font-size: 9.5pt; }
  nav, .skip { display: none; }
  section { border: 0; border-radius: 0; padding: 0; margin: 0 0 6mm; }
  .scroll { overflow: visible; max-height: none; border: 0; }
  h2, h3, caption, thead { break-after: avoid; }
  thead { display: table-header-group; }
  tr, figure, .tiles div { break-inside: avoid; }
  td code, th code { white-space: normal; overflow-wrap: anywhere; }
  pre { white-space: pre-wrap; overflow-wrap: anywhere; padding: 0; }
  .badge { border-color: currentColor; }
  .picture svg { min-width: 0; max-width: 100%; max-height: 230mm; }
}
)";

}  // namespace host::output
