# The SELECT of "SELECT: build, render, free" with SQLAlchemy Core: python3 select.py
import time

from sqlalchemy import column, or_, select, table
from sqlalchemy.dialects import sqlite

dialect = sqlite.dialect()
file = table("file", *map(column, ("id", "name", "size", "deleted", "kind"))).alias("f")


def statement():
    query = (
        select(file.c.id, file.c.name, file.c.size)
        .where(file.c.size >= 1024, file.c.name.like("%report%"), or_(file.c.deleted.is_(None), file.c.kind != 2))
        .order_by(file.c.name)
        .limit(20)
        .offset(40)
        .compile(dialect=dialect)
    )
    return query.string, query.params


def microseconds(times=2000):
    start = time.process_time()
    for _ in range(times):
        statement()
    return 1e6 * (time.process_time() - start) / times


print(*statement())
print("%.1f us" % sorted(microseconds() for _ in range(21))[10])
