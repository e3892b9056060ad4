#include "report/WindowStyle.h"
namespace Report {
// Colours repeat what shapes, places and words say, and say nothing alone. The dark ones are for screens only, so that
// paper stays white whatever the screen looks like. Below 640 pixels (a sheet of A4 has about 700) rows become blocks.
std::string_view windowStyle() {
   return R"(
:root{--ink:#17212b;--soft:#4d5b69;--paper:#fff;--card:#f3f6f9;--panel:#fbfcfd;--line:#cfd8e0;--in:#0a5f9e;
--out:#b84a08;--good:#0a6848;--warn:#8a5200;--bad:#a3162a;--goodTint:#e3f4ec;--warnTint:#fdf1da;--badTint:#fce6e6;
--plainTint:#eaf0f6}
@media screen and (prefers-color-scheme:dark){:root{--ink:#e6ecf2;--soft:#a9b6c3;--paper:#0f151b;--card:#19222b;
--panel:#141c24;--line:#34414d;--in:#63b3f3;--out:#ff9d57;--good:#52c99b;--warn:#eab54f;--bad:#ff8089;
--goodTint:#11291f;--warnTint:#2e2410;--badTint:#331a1d;--plainTint:#1b2732}}
*{box-sizing:border-box}
html{background:var(--paper);color-scheme:light dark}
body{margin:0 auto;max-width:1240px;padding:20px 24px 40px;background:var(--paper);color:var(--ink);
font:15px/1.45 system-ui,-apple-system,"Segoe UI",Roboto,"Liberation Sans","DejaVu Sans",Arial,sans-serif;
font-variant-numeric:tabular-nums;-webkit-text-size-adjust:100%}
h1{font-size:26px;line-height:1.2;margin:2px 0 10px;display:flex;gap:12px;align-items:center}
h1 svg{flex:none;width:30px;height:30px}
h2{font-size:17px;margin:30px 0 8px}
p{margin:6px 0}
.n{overflow-wrap:break-word}
.n.long{overflow-wrap:anywhere}
.over{color:var(--soft);margin:0}
.over .n{color:var(--ink);font-weight:650}
.soft,.note{color:var(--soft)}
.note{font-size:13px}
header{border-left:6px solid var(--soft);border-radius:4px;padding:14px 18px;background:var(--plainTint)}
header.good{border-color:var(--good);background:var(--goodTint)}
header.warn{border-color:var(--warn);background:var(--warnTint)}
header.bad{border-color:var(--bad);background:var(--badTint)}
.good h1 svg,.first svg.good{color:var(--good)}.warn h1 svg,.first svg.warn{color:var(--warn)}
.bad h1 svg,.first svg.bad{color:var(--bad)}.first svg.plain{color:var(--soft)}
.first{list-style:none;margin:0;padding:0}
.first li{position:relative;padding:2px 0 2px 25px}
.first li>svg{position:absolute;left:0;top:5px;width:16px;height:16px}
.tiles{display:grid;grid-template-columns:repeat(4,1fr);gap:10px;margin:14px 0 0;padding:0;list-style:none}
.tiles li{background:var(--card);border:1px solid var(--line);border-radius:6px;padding:8px 12px}
.tiles span{display:block;font-size:13px;color:var(--soft)}
.tiles strong{font-size:19px}
dl{margin:6px 0;font-size:14px}
dt{font-weight:600}
dd{margin:0 0 4px;color:var(--soft)}
.pair{display:grid;grid-template-columns:minmax(0,7fr) minmax(0,5fr);gap:0 36px;align-items:start}
table{border-collapse:collapse;width:100%}
.list th,.list td{text-align:left;vertical-align:top;padding:4px 14px 4px 0;border-bottom:1px solid var(--line)}
.list th:last-child,.list td:last-child{padding-right:0}
.list thead th{font-size:13px;font-weight:600;color:var(--soft);vertical-align:bottom}
.list tbody th{font-weight:600}
.list .num{text-align:right;white-space:nowrap;padding-right:24px}
.list thead th,.list thead .num{white-space:normal}
.list tr.alert th:first-child,.list tr.alert td:first-child{box-shadow:-6px 0 0 var(--paper),-9px 0 0 var(--bad)}
.word{display:inline-block;white-space:nowrap}
.t{white-space:nowrap}
.word svg{width:11px;height:11px;margin-right:5px;vertical-align:-.5px}
.word.bad{color:var(--bad);font-weight:650}.word.warn{color:var(--warn);font-weight:600}
.word.good svg{color:var(--good)}
.mark{width:16px;height:16px;margin-right:5px;vertical-align:-3px;overflow:visible}
main{display:flex;flex-direction:column}
nav{margin:14px 0 0;color:var(--soft);font-size:14px}
nav a{color:inherit;margin-right:16px}
figure{margin:0}
.lanes{table-layout:fixed}
.lanes col.names{width:168px}
.lanes.low col.names{width:210px}
.lanes th,.lanes td{padding:0;text-align:left;font-weight:400;vertical-align:middle}
.lanes thead th{position:sticky;top:0;z-index:1;background:var(--paper);padding-top:4px;font-size:13px;
color:var(--soft);vertical-align:top}
.lanes tbody th{padding-right:10px;line-height:1.25}
.lanes tbody td{padding:3px 0}
.lanes th .n{font-weight:600;display:block}
.lanes th small{font-size:12.5px;color:var(--soft);display:block}
.lanes.low tbody th,.lanes.low tbody td{padding-top:1px;padding-bottom:1px}
.lanes.low tbody th{padding-right:10px;font-size:13px;white-space:nowrap;overflow:hidden;text-overflow:ellipsis}
.lanes.low th .n,.lanes.low th small{display:inline;overflow-wrap:normal}
.lanes.low th small{font-size:12px;margin-left:6px}
.lanes svg,.legend svg{display:block}
svg text{font-size:12px;fill:var(--soft)}
svg .strong{fill:var(--ink);font-weight:600}
svg .halo{paint-order:stroke;stroke:var(--panel);stroke-width:3px;stroke-linejoin:round}
.unmeasured{fill:url(#hatch)}
.measured{fill:var(--panel)}
.frame{fill:none;stroke:var(--line)}
.grid{stroke:var(--line);stroke-width:1;vector-effect:non-scaling-stroke}
.middle{stroke:var(--soft);stroke-width:1;vector-effect:non-scaling-stroke;opacity:.55}
.edge{stroke:var(--ink);stroke-width:1.2;stroke-dasharray:1 3;vector-effect:non-scaling-stroke;opacity:.8}
.threshold{fill:none;stroke:var(--ink);stroke-width:1.3;stroke-dasharray:6 4;vector-effect:non-scaling-stroke}
.low .threshold{stroke-dasharray:none;stroke-width:1;opacity:.25}
.in{color:var(--in)}.out{color:var(--out)}
.area{fill:currentColor;fill-opacity:.22}
.band{fill:currentColor;fill-opacity:.35}
.full{fill:currentColor;fill-opacity:.75}
.mean{fill:none;stroke:currentColor;stroke-width:1.7;vector-effect:non-scaling-stroke}
.stages{position:relative;height:24px}
.stage{position:absolute;top:0;height:24px;padding:2px 0 0 6px;overflow:hidden;white-space:nowrap;
text-overflow:ellipsis;background:var(--plainTint);border:1px solid var(--line);color:var(--ink);font-size:12.5px}
.stage:empty{padding:0}
.stage.late{background:var(--warnTint);border-color:var(--warn)}
.stage.stay{background:var(--goodTint);border-color:var(--good)}
.deadline{position:absolute;top:2px;margin-left:-8px}
.deadline .mark{margin:0}
.narrow{display:none}
.legend{display:flex;flex-wrap:wrap;gap:4px 20px;margin:8px 0 0;padding:0;list-style:none;
font-size:13px;color:var(--soft)}
.legend li{display:flex;align-items:center;gap:6px}
.legend svg{flex:none;overflow:visible}
details{margin:8px 0}
summary{cursor:pointer;color:var(--soft)}
footer{margin-top:28px;border-top:1px solid var(--line);padding-top:8px}
@media(max-width:900px){.pair{display:block}}
@media(max-width:640px){
body{padding:12px 12px 28px;font-size:15px}
h1{font-size:21px}
header{padding:12px}
.tiles{grid-template-columns:1fr 1fr}
.lanes,.lanes thead,.lanes tbody,.lanes tr,.lanes th,.lanes td{display:block;width:auto}
.roomy{order:-1}
.lanes thead th:first-child{display:none}
.lanes thead{position:sticky;top:0;z-index:1;background:var(--paper)}
.lanes thead th{position:static}
.lanes tbody th{padding:5px 0 0}
.lanes th .n,.lanes th small{display:inline}
.lanes th small{margin-left:8px}
.lanes.low tbody th{padding-top:4px}
.wide{display:none}.narrow{display:inline}
.list,.list tbody,.list tr,.list th,.list td{display:block}
.list thead{display:none}
.list tr{border-bottom:1px solid var(--line);padding:7px 0}
.list th,.list td{border:0;padding:1px 0}
.list td[data-label]{display:flex;gap:10px}
.list td[data-label]::before{content:attr(data-label);flex:none;width:138px;color:var(--soft)}
.list .num{text-align:left}
.list tr.alert th:first-child,.list tr.alert td:first-child{box-shadow:none}
}
@media print{
@page{size:A4;margin:12mm}
html{color-scheme:light}
body{max-width:none;padding:0;font-size:11pt}
header,.tiles li,.stage,.legend svg,.lanes svg{-webkit-print-color-adjust:exact;print-color-adjust:exact}
header,.tiles,tr,figcaption,.legend{break-inside:avoid}
h2{break-after:avoid}
thead{display:table-header-group}
.list{font-size:9.5pt}
.list th,.list td{padding:3px 8px 3px 0}
.list .num{padding-right:12px}
.lanes thead th{position:static}
main,.pair{display:block}
.screen{display:none}
}
)";
}
}  // namespace Report
