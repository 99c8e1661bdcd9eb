// Runs the statements that it is given as JSON on standard input in DuckDB, and prints the rows of the last one of
// each list: node export_test.mjs MODULE.
import { createRequire } from 'node:module';
import { readFileSync } from 'node:fs';

const { DuckDBInstance } = createRequire(process.argv[2] + '/')('@duckdb/node-api');
const connection = await (await DuckDBInstance.create(':memory:')).connect();
const results = [];
for (const statements of JSON.parse(readFileSync(0, 'utf8'))) {
    let rows = [];
    for (const statement of statements) {
        rows = (await connection.runAndReadAll(statement)).getRowsJson();
    }
    results.push(rows);
}
console.log(JSON.stringify(results));
