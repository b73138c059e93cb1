// The SELECT of "SELECT: build, render, free" with the builder of xorm: GO111MODULE=off GOPATH=/usr/share/gocode go run select.go
package main

import (
	"fmt"
	"sort"
	"testing"

	"github.com/go-xorm/builder"
)

func statement() (string, []interface{}, error) {
	return builder.Dialect(builder.SQLITE).Select("id", "name", "size").From("file", "f").
		Where(builder.And(
			builder.Gte{"size": 1024},
			builder.Like{"name", "%report%"},
			builder.Or(builder.IsNull{"deleted"}, builder.Neq{"kind": 2}))).
		OrderBy("name").Limit(20, 40).ToSQL()
}

func main() {
	fmt.Println(statement())
	samples := make([]float64, 21)
	for i := range samples {
		samples[i] = float64(testing.Benchmark(func(b *testing.B) {
			for n := 0; n < b.N; n++ {
				statement()
			}
		}).NsPerOp()) / 1000
	}
	sort.Float64s(samples)
	fmt.Printf("%.1f us\n", samples[10])
}
