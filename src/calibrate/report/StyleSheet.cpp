#include "calibrate/report/StyleSheet.h"

namespace calibrate::report {

// No character here that HTML or XML would have to escape, so that the page is both.
const char* const kStyleSheet = R"css(
:root {
  color-scheme: light dark;
  --page: #f4f6f8; --surface: #ffffff; --ink: #15202b; --muted: #566373;
  --rule: #d5dbe2; --fine: #eaeef2;
  --before: #d55e00; --after: #0072b2; --predicted: #00835f; --target: #15202b; --faint: #a7b1bc;
  --good: #00734f; --poor: #8a5300; --bad: #b3261e;
  --good-tint: #e2f3ec; --poor-tint: #fcf0dc; --bad-tint: #fbe6e4;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #0e1319; --surface: #161d25; --ink: #e7edf3; --muted: #9aa8b7;
    --rule: #35424f; --fine: #222c36;
    --before: #f0932b; --after: #5ab7ee; --predicted: #35cba0; --target: #e7edf3; --faint: #566472;
    --good: #4fd1a5; --poor: #f3b755; --bad: #ff8a80;
    --good-tint: #12302a; --poor-tint: #34270f; --bad-tint: #3b1b1a;
  }
}
* { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; }
body {
  margin: 0; background: var(--page); color: var(--ink);
  font: 1rem/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Noto Sans", "DejaVu Sans", sans-serif;
  font-variant-numeric: tabular-nums; overflow-wrap: anywhere;
}
main { max-width: 72rem; margin: 0 auto; padding: 1.25rem 1rem 3rem; }
h1 { font-size: clamp(1.6rem, 1.2rem + 2vw, 2.4rem); line-height: 1.15; margin: .2rem 0 .4rem; letter-spacing: -.015em; }
h2 { font-size: 1.3rem; line-height: 1.25; margin: 0 0 .3rem; letter-spacing: -.01em; }
p { margin: 0 0 .6rem; }
.eyebrow { font-size: .8rem; font-weight: 600; letter-spacing: .08em; text-transform: uppercase; color: var(--muted); margin: 0; }
.meta { color: var(--muted); font-size: .9rem; }
.lead { font-size: 1.15rem; line-height: 1.45; max-width: 46rem; margin: .9rem 0 1rem; }
section { margin-top: 2.2rem; }
.about { color: var(--muted); margin-bottom: .9rem; }

.chip { display: inline-block; padding: .1rem .6rem; border-radius: 1rem; font-size: .85rem; font-weight: 600; }
.chip.good { color: var(--good); background: var(--good-tint); }
.chip.poor { color: var(--poor); background: var(--poor-tint); }
.chip.unusable { color: var(--bad); background: var(--bad-tint); }

.cards { list-style: none; margin: 0; padding: 0; display: grid; gap: .75rem; grid-template-columns: repeat(auto-fill, minmax(min(100%, 16rem), 1fr)); }
.cards a { display: block; height: 100%; padding: .85rem 1rem .95rem; background: var(--surface); border: 1px solid var(--rule); border-radius: .75rem; color: inherit; text-decoration: none; }
.cards a:hover, .cards a:focus-visible { border-color: var(--after); }
.cards .name { font-weight: 600; display: block; }
.cards .figures { font-size: 1.45rem; font-weight: 650; letter-spacing: -.01em; display: block; line-height: 1.3; }
.cards .figures .was { color: var(--before); }
.cards .figures .is { color: var(--after); }
.cards .figures .unit { font-size: .95rem; font-weight: 500; color: var(--muted); }
.cards .small { color: var(--muted); font-size: .85rem; display: block; }
.meter { display: block; height: .4rem; border-radius: .2rem; margin-top: .35rem; background: var(--fine); }
.meter span { display: block; height: 100%; border-radius: .2rem; min-width: .2rem; }
.meter .was { background: var(--before); }
.meter .is { background: var(--after); }

figure { margin: 0; padding: .85rem .9rem .8rem; background: var(--surface); border: 1px solid var(--rule); border-radius: .75rem; min-width: 0; }
figure + figure, figure + .pair, .pair + .pair { margin-top: .75rem; }
.pair { display: grid; gap: .75rem; grid-template-columns: repeat(auto-fit, minmax(min(100%, 26rem), 1fr)); }
.pair figure { margin: 0; }
figcaption { font-weight: 600; }
.legend { list-style: none; margin: .15rem 0 0; padding: 0; display: flex; flex-wrap: wrap; gap: .1rem 1rem; font-size: .85rem; color: var(--muted); }
.legend li { display: flex; align-items: center; gap: .4rem; white-space: nowrap; }
.sample { width: 28px; height: 10px; flex: none; }
.y-title, .x-title, .note { font-size: .78rem; color: var(--muted); margin: 0; }
.y-title { margin-top: .35rem; }
figure { display: flex; flex-direction: column; }
.plot { order: 1; display: block; box-sizing: content-box; overflow: visible; width: calc(100% - 2.9rem); height: 11.5rem; margin: .55rem .6rem 1.35rem 2.3rem; }
.plot.tall { height: clamp(14rem, 30vw, 22rem); }
.plot.waterfall { width: calc(100% - 4.2rem); margin-right: 1.9rem; height: clamp(15rem, 26vw, 19rem); }
.x-title { order: 2; text-align: center; }
.note { order: 3; margin-top: .35rem; }
.nothing { color: var(--muted); margin: .5rem 0 0; }
.plot text { font-size: 11px; fill: var(--muted); }
.tx { text-anchor: middle; }
.ty { text-anchor: end; }
.tr { text-anchor: start; }
.grid, .fine { stroke: var(--rule); stroke-width: 1; shape-rendering: crispEdges; }
.fine { stroke: var(--fine); }
.line { fill: none; stroke: currentColor; stroke-width: 1.6; stroke-linejoin: round; stroke-linecap: round; vector-effect: non-scaling-stroke; }
.slice { fill: var(--surface); stroke-width: 1.2; stroke-linejoin: round; vector-effect: non-scaling-stroke; }
.line.before, .slice.before { stroke: var(--before); }
.line.after, .slice.after, .line.filter { stroke: var(--after); }
.line.after { stroke-width: 2.2; }
.line.predicted, .slice.predicted { stroke: var(--predicted); }
.line.predicted { stroke-dasharray: 1 4; stroke-width: 2.2; }
.line.target { stroke: var(--target); stroke-dasharray: 7 4; stroke-width: 1.3; }
.line.faint { stroke: var(--faint); stroke-width: 1; }
.line.filter { stroke-width: 1.8; }
.thin .line { stroke-width: 1.1; }
.line.bars { stroke-width: 12; stroke-linecap: butt; stroke-dasharray: none; }
.line.bars.slim { stroke-width: 6; }

table { width: 100%; border-collapse: collapse; background: var(--surface); border: 1px solid var(--rule); border-radius: .75rem; overflow: hidden; border-spacing: 0; }
th, td { padding: .5rem .7rem; text-align: right; vertical-align: top; border-top: 1px solid var(--fine); }
th:first-child, td:first-child { text-align: left; }
thead th { font-size: .82rem; font-weight: 600; color: var(--muted); border-top: 0; line-height: 1.25; overflow-wrap: normal; }
tbody th { font-weight: 600; }
.unit { font-weight: 400; }
thead .unit { display: block; }

.list { list-style: none; margin: 0; padding: .3rem .9rem; background: var(--surface); border: 1px solid var(--rule); border-radius: .75rem; }
.list li { display: flex; gap: .6rem; padding: .4rem 0; border-top: 1px solid var(--fine); }
.list li:first-child { border-top: 0; }
.mark { flex: none; width: 1.35rem; height: 1.35rem; margin-top: .1rem; border-radius: 50%; text-align: center; font-size: .8rem; line-height: 1.35rem; font-weight: 700; }
.mark.good { color: var(--good); background: var(--good-tint); }
.mark.poor { color: var(--poor); background: var(--poor-tint); }
.mark.unusable { color: var(--bad); background: var(--bad-tint); }
details { background: var(--surface); border: 1px solid var(--rule); border-radius: .75rem; }
summary { display: flex; gap: .6rem; padding: .6rem .9rem; cursor: pointer; list-style: none; }
summary::-webkit-details-marker { display: none; }
summary strong { display: block; }
summary .small { color: var(--muted); font-size: .85rem; }
summary::after { content: "+"; margin-left: auto; color: var(--muted); }
details[open] summary::after { content: "−"; }
details .list { border: 0; padding-top: 0; }
details .list li:first-child { border-top: 1px solid var(--fine); }
.columns { display: grid; gap: .75rem; align-items: start; grid-template-columns: repeat(auto-fit, minmax(min(100%, 26rem), 1fr)); }
dl { margin: 0; padding: .5rem .9rem; background: var(--surface); border: 1px solid var(--rule); border-radius: .75rem; display: grid; grid-template-columns: 13rem 1fr; gap: .35rem 1rem; }
dt { color: var(--muted); }
dd { margin: 0; min-width: 0; }
footer { margin-top: 2.2rem; color: var(--muted); font-size: .88rem; max-width: 46rem; }

@media (max-width: 34rem) {
  table, thead, tbody { display: block; }
  tr { display: grid; grid-template-columns: repeat(5, 1fr); padding: .45rem .9rem; border-top: 1px solid var(--fine); }
  thead tr { border-top: 0; }
  th, td { padding: .1rem 0; border-top: 0; font-size: .88rem; }
  thead th { font-size: .76rem; }
  thead th:first-child { display: none; }
  tbody th { grid-column: 1 / -1; font-size: 1rem; }
  dl { grid-template-columns: 7rem 1fr; font-size: .92rem; }
  main { padding-left: .75rem; padding-right: .75rem; }
}
@media print {
  :root {
    color-scheme: light;
    --page: #ffffff; --surface: #ffffff; --ink: #000000; --muted: #444444; --rule: #c4cad1; --fine: #e6e9ed;
    --before: #d55e00; --after: #0072b2; --predicted: #00835f; --target: #000000; --faint: #a7b1bc;
    --good: #00734f; --poor: #8a5300; --bad: #b3261e;
    --good-tint: #e2f3ec; --poor-tint: #fcf0dc; --bad-tint: #fbe6e4;
  }
  body { font-size: 10pt; -webkit-print-color-adjust: exact; print-color-adjust: exact; }
  main { max-width: none; padding: 0; }
  .pair, .columns { grid-template-columns: 1fr 1fr; }
  summary::after { content: none; }
  figure, table, details, .list li, .cards a, dl { break-inside: avoid; }
  h2 { break-after: avoid; }
  .plot.tall { height: 17rem; }
}
)css";

}  // namespace calibrate::report
