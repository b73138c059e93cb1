// The SELECT of "SELECT: build, render, free" with knex and squel: node select.mjs, after npm install knex squel
import makeKnex from "knex";
import squel from "squel";

const knex = makeKnex({ client: "sqlite3", useNullAsDefault: true });

const peers = {
  knex: () =>
    knex("file as f")
      .select("id", "name", "size")
      .where("size", ">=", 1024)
      .where("name", "like", "%report%")
      .where((either) => either.whereNull("deleted").orWhere("kind", "!=", 2))
      .orderBy("name")
      .limit(20)
      .offset(40)
      .toSQL()
      .toNative(),
  squel: () =>
    squel
      .select()
      .from("file", "f")
      .fields(["id", "name", "size"])
      .where("size >= ?", 1024)
      .where("name LIKE ?", "%report%")
      .where(squel.expr().or("deleted IS NULL").or("kind != ?", 2))
      .order("name")
      .limit(20)
      .offset(40)
      .toParam(),
};

function microseconds(statement, times = 5000) {
  const start = process.cpuUsage();
  for (let i = 0; i < times; ++i) statement();
  const used = process.cpuUsage(start);
  return (used.user + used.system) / times;
}

for (const [name, statement] of Object.entries(peers)) {
  console.log(name, statement());
  const samples = Array.from({ length: 21 }, () => microseconds(statement));
  console.log(`${samples.sort((a, b) => a - b)[10].toFixed(1)} us`);
}
