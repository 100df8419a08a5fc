// The HyperFormula run of bench/recalc/run.sh: builds the workbook from the cells
// cells_json.py wrote (HyperFormula calculates every formula as it builds) and reads every
// value back once, as a recalculation that saves them would.
// Usage: node hyperformula_run.js CELLS.json   (with hyperformula installed beside NODE_PATH)
const fs = require('fs');
const { HyperFormula } = require('hyperformula');

const data = JSON.parse(fs.readFileSync(process.argv[2], 'utf8'));
const started = process.hrtime.bigint();
const names = data.names.map(([name, expression]) => ({ name, expression }));
const hf = HyperFormula.buildFromSheets(data.sheets, { licenseKey: 'gpl-v3' }, names);
let numbers = 0;
for (const name of hf.getSheetNames()) {
  const values = hf.getSheetValues(hf.getSheetId(name));
  for (const row of values) for (const v of row) if (typeof v === 'number') numbers++;
}
const seconds = Number(process.hrtime.bigint() - started) / 1e9;
console.log(`hyperformula: built and read ${numbers} numbers in ${seconds.toFixed(2)} s`);
