'use strict';
// The made-up world of the sample generator: the regions a chart service
// sells, their countries with identifier prefixes and boxes, and the words
// that airport names, chart titles and NOTAM texts are made of.
//
// A region has an IFR service code, a VFR one (ending in "6") and in places
// a restricted one (ending in "7"), each with its coverage key. All keys have
// four digits, so no key can be found inside another in a list of keys.

const REGIONS = [
  {
    name: 'United States', weight: 0.55,
    ifr: ['US1', 1101], vfr: ['US6', 1106], restricted: ['US7', 1107],
    countries: [{
      code: 'US', name: 'United States', prefix: 'K', box: [25.0, -124.5, 49.0, -67.0],
      states: ['WA', 'OR', 'CA', 'NV', 'ID', 'MT', 'WY', 'UT', 'AZ', 'CO', 'NM', 'TX', 'OK', 'KS',
        'NE', 'SD', 'ND', 'MN', 'IA', 'MO', 'AR', 'LA', 'MS', 'AL', 'GA', 'FL', 'SC', 'NC', 'TN',
        'KY', 'IL', 'WI', 'MI', 'IN', 'OH', 'PA', 'NY', 'VT', 'NH', 'ME', 'MA', 'CT', 'NJ', 'VA'],
      firs: ['KZSE', 'KZOA', 'KZLA', 'KZLC', 'KZDV', 'KZAB', 'KZFW', 'KZHU', 'KZKC', 'KZMP',
        'KZAU', 'KZID', 'KZME', 'KZTL', 'KZJX', 'KZMA', 'KZDC', 'KZNY', 'KZBW', 'KZOB'],
    }],
  },
  {
    name: 'Canada', weight: 0.15,
    ifr: ['CA1', 1201], vfr: ['CA6', 1206],
    countries: [{
      code: 'CA', name: 'Canada', prefix: 'C', box: [42.5, -130.0, 60.0, -60.0],
      states: ['BC', 'AB', 'SK', 'MB', 'ON', 'QC', 'NB', 'NS', 'PE', 'NL'],
      firs: ['CZVR', 'CZEG', 'CZWG', 'CZYZ', 'CZUL', 'CZQM', 'CZQX'],
    }],
  },
  {
    name: 'Europe', weight: 0.22,
    ifr: ['EU1', 1301], vfr: ['EU6', 1306], restricted: ['EU7', 1307],
    countries: [
      ['GB', 'United Kingdom', 'EG', [50.0, -6.0, 58.5, 1.7], ['EN', 'SC', 'WA', 'NI'], ['EGTT', 'EGPX']],
      ['DE', 'Germany', 'ED', [47.4, 6.0, 54.8, 15.0], ['BY', 'BW', 'HE', 'NW', 'NI', 'SH', 'BE'], ['EDGG', 'EDMM', 'EDWW']],
      ['FR', 'France', 'LF', [43.0, -4.5, 51.0, 7.8], ['IF', 'BR', 'NO', 'PR', 'OC', 'AR'], ['LFFF', 'LFMM', 'LFRR', 'LFBB', 'LFEE']],
      ['ES', 'Spain', 'LE', [36.2, -9.0, 43.6, 3.2], ['MD', 'CT', 'AN', 'GA', 'VC'], ['LECM', 'LECB']],
      ['IT', 'Italy', 'LI', [37.0, 7.0, 46.5, 18.3], ['LO', 'LA', 'CM', 'SI', 'PI', 'VE'], ['LIMM', 'LIRR', 'LIBB']],
      ['NL', 'Netherlands', 'EH', [51.0, 3.5, 53.5, 7.1], ['NH', 'ZH', 'UT', 'FR'], ['EHAA']],
      ['BE', 'Belgium', 'EB', [49.6, 2.6, 51.4, 6.3], ['VL', 'WA', 'BR'], ['EBBU']],
      ['CH', 'Switzerland', 'LS', [45.9, 6.0, 47.7, 10.4], ['ZH', 'BE', 'GE', 'TI', 'VS'], ['LSAS']],
      ['AT', 'Austria', 'LO', [46.5, 9.6, 48.9, 17.1], ['WI', 'TI', 'ST', 'SZ'], ['LOVV']],
      ['DK', 'Denmark', 'EK', [54.6, 8.1, 57.7, 12.6], ['HS', 'SJ', 'MJ', 'ND'], ['EKDK']],
      ['SE', 'Sweden', 'ES', [55.4, 11.2, 66.0, 23.5], ['AB', 'VG', 'SK', 'NB'], ['ESAA', 'ESOS']],
      ['NO', 'Norway', 'EN', [58.0, 5.0, 69.5, 30.0], ['OS', 'VL', 'TR', 'NO'], ['ENOR', 'ENOB']],
      ['FI', 'Finland', 'EF', [60.0, 21.0, 69.0, 31.0], ['UU', 'PI', 'LA'], ['EFIN']],
      ['PL', 'Poland', 'EP', [49.2, 14.2, 54.8, 24.0], ['MZ', 'MA', 'PM', 'DS'], ['EPWW']],
      ['IE', 'Ireland', 'EI', [51.5, -10.4, 55.3, -6.0], ['LE', 'MU', 'CO'], ['EISN']],
      ['PT', 'Portugal', 'LP', [37.0, -9.4, 42.1, -6.3], ['LI', 'NO', 'AL'], ['LPPC']],
    ].map(([code, name, prefix, box, states, firs]) => ({ code, name, prefix, box, states, firs })),
  },
  {
    name: 'Australia and New Zealand', weight: 0.08,
    ifr: ['AU1', 1401], vfr: ['AU6', 1406],
    countries: [
      {
        code: 'AU', name: 'Australia', prefix: 'Y', box: [-43.5, 113.5, -11.0, 153.5], weight: 4,
        states: ['NSW', 'VIC', 'QLD', 'WA', 'SA', 'TAS', 'NT'].map((s) => s.slice(0, 2)),
        firs: ['YMMM', 'YBBB'],
      },
      {
        code: 'NZ', name: 'New Zealand', prefix: 'NZ', box: [-46.8, 166.5, -34.5, 178.5], weight: 1,
        states: ['AK', 'WG', 'CB', 'OT'], firs: ['NZZC'],
      },
    ],
  },
];

// Regions of the catalogue that the sample directory does not cover.
const CATALOGUE_ONLY = [
  ['SA1', 2101, 'South America IFR'], ['SA6', 2106, 'South America VFR'],
  ['AF1', 2201, 'Africa IFR'], ['AS1', 2301, 'Asia IFR'], ['AS6', 2306, 'Asia VFR'],
  ['ME1', 2401, 'Middle East IFR'], ['CR1', 2501, 'Caribbean IFR'],
].map(([code, key, description]) => ({ code, key, description }));

const CITY_STARTS = ['Ash', 'Bay', 'Bright', 'Cedar', 'Clear', 'Cold', 'Elm', 'Fair', 'Fox',
  'Glen', 'Green', 'High', 'Iron', 'Lake', 'Long', 'Maple', 'Mill', 'New', 'North', 'Oak',
  'Pine', 'Red', 'River', 'Rock', 'Salt', 'Silver', 'South', 'Spring', 'Stone', 'Sun', 'West',
  'White', 'Wolf'];
const CITY_ENDS = ['bridge', 'brook', 'burg', 'by', 'dale', 'field', 'ford', 'gate', 'haven',
  'holm', 'ley', 'mont', 'mouth', 'port', 'ridge', 'side', 'stead', 'ton', 'vale', 'ville',
  'water', 'wick', 'wood'];
const AIRPORT_KINDS = ['Regional', 'Municipal', 'International', 'County', 'Field', 'Airpark',
  'Memorial', 'Executive'];
const SURFACES = ['ASPH', 'CONC', 'TURF', 'GRVL'];
const FUELS = ['100LL', '100LL JET A', 'JET A', 'MOGAS', ''];
const FIX_WORDS = ['ALPHA', 'BRAVO', 'CEDAR', 'DELTA', 'EAGLE', 'FALCN', 'GRIZZ', 'HAWKK', 'IVORY',
  'JUNCO', 'KESTR', 'LUNAR', 'MAPLE', 'NORDY', 'OSPRY', 'PIKES', 'QUAIL', 'RAVEN', 'SABLE',
  'TIGER', 'UMBRA', 'VIPER', 'WHALE', 'XENON', 'YUKON', 'ZEPHR'];

function runway(rng) {
  const number = 1 + rng.int(36);
  const side = rng() < 0.3 ? rng.pick(['L', 'R', 'C']) : '';
  return `${String(number).padStart(2, '0')}${side}`;
}

// The title of a chart from its index number.
function chartTitle(indexNo, rng) {
  if (indexNo === 'APT') return 'Airport information';
  if (indexNo === '10-9') return 'Airport diagram';
  if (indexNo.startsWith('10-2')) return `${rng.pick(FIX_WORDS)} ${1 + rng.int(9)} arrival (STAR)`;
  if (indexNo.startsWith('10-3')) return `${rng.pick(FIX_WORDS)} ${1 + rng.int(9)} departure (SID)`;
  if (indexNo.startsWith('11-')) return `${rng.pick(['ILS or LOC', 'RNAV (GPS)', 'ILS Z'])} RWY ${runway(rng)}`;
  if (indexNo.startsWith('12-')) return `VOR RWY ${runway(rng)}`;
  if (indexNo.startsWith('13-')) return `NDB RWY ${runway(rng)}`;
  if (indexNo.startsWith('16-')) return `Visual approach RWY ${runway(rng)}`;
  if (indexNo.startsWith('V-')) return rng.pick(['VFR arrival', 'VFR departure', 'Aerodrome chart', 'Visual circuit']);
  return 'Chart';
}

// The index numbers of an airport's IFR charts, in the order the chart
// table lists them: information page, diagram, then approaches, arrivals,
// departures and the rest.
function ifrIndexNumbers(count) {
  const list = ['APT', '10-9'].slice(0, count);
  const letter = (n) => (n === 0 ? '' : String.fromCharCode(64 + n));
  let approach = 1;
  let arrival = 0;
  let departure = 0;
  let other = 0;
  while (list.length < count) {
    const turn = list.length % 5;
    if (turn === 0 || turn === 2) list.push(`11-${approach++}`);
    else if (turn === 1 && arrival < 26) list.push(`10-2${letter(arrival++)}`);
    else if (turn === 3 && departure < 26) list.push(`10-3${letter(departure++)}`);
    else {
      list.push(`${[12, 13, 16][other % 3]}-${Math.floor(other / 3) + 1}`);
      other++;
    }
  }
  return list;
}

function notamText(rng, airport, charts, date) {
  const rwy = runway(rng);
  const choices = [
    () => [`RWY ${rwy} CLSD`, ''],
    () => [`TWY ${String.fromCharCode(65 + rng.int(8))} CLSD BTN TWY ${String.fromCharCode(65 + rng.int(8))}`
      + ` AND TWY ${String.fromCharCode(65 + rng.int(8))}`, ''],
    () => {
      const approach = charts.find((c) => c.indexNo.startsWith('11-'));
      return [`ILS RWY ${rwy} GP U/S`, approach ? approach.indexNo : ''];
    },
    () => [`OBST CRANE ${200 + rng.int(800)}FT AMSL ${1 + rng.int(5)}NM ${rng.pick(['N', 'E', 'S', 'W'])}`
      + ' OF ARP LGTD', ''],
    () => [`RWY ${rwy} PAPI U/S`, ''],
    () => [`AD HR OF OPS ${String(5 + rng.int(3)).padStart(2, '0')}00-${20 + rng.int(4)}00`, ''],
    () => ['BIRD ACT IN VICINITY OF AD', ''],
    () => [`FUEL ${rng.pick(['100LL', 'JET A'])} NOT AVBL`, ''],
    () => [`APRON ${1 + rng.int(4)} LGT U/S`, ''],
    () => [`${rng.pick(FIX_WORDS)} VOR U/S`, ''],
  ];
  const [line, indexNo] = rng.pick(choices)();
  let text = `${airport.code} ${line}\r\nCREATED: ${date} SOURCE: ${airport.fir}`;
  if (rng() < 0.03) {
    // A long remark, so that some memos run over several blocks.
    const words = [];
    while (words.join(' ').length < 600 + rng.int(600)) words.push(rng.pick(FIX_WORDS), rng.pick(CITY_ENDS).toUpperCase());
    text += `\r\nRMK ${words.join(' ')}`;
  }
  return { text, indexNo };
}

function countryNotamText(rng, country, date) {
  const line = rng.pick([
    () => `GPS RAIM OUTAGES PREDICTED ${date} ALL AD IN ${country.name.toUpperCase()}`,
    () => `TEMPO RESTRICTED AREA ${country.code}R${100 + rng.int(800)} ACT SFC-FL${100 + 10 * rng.int(20)}`,
    () => `NEW AIP AMDT ${1 + rng.int(12)}/${date.slice(2, 4)} EFFECTIVE ${date}`,
    () => `MIL EXER IN ${country.firs[0]} FIR, EXPECT DELAYS`,
  ])();
  return `${line}\r\nCREATED: ${date} SOURCE: ${country.firs[0]}`;
}

module.exports = {
  REGIONS, CATALOGUE_ONLY, CITY_STARTS, CITY_ENDS, AIRPORT_KINDS, SURFACES, FUELS,
  chartTitle, ifrIndexNumbers, notamText, countryNotamText,
};
