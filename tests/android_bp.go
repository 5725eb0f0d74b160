// SPDX-License-Identifier: Apache-2.0

// Prints each property of Android.bp as one line "module.property value", read by the platform's own parser.
// usage: go run android_bp.go FILE
package main

import (
	"fmt"
	"os"

	"github.com/google/blueprint/parser"
)

func print(name string, value parser.Expression) {
	switch v := value.Eval().(type) {
	case *parser.Map:
		for _, property := range v.Properties {
			print(name+"."+property.Name, property.Value)
		}
	case *parser.List:
		for _, element := range v.Values {
			print(name, element)
		}
	case *parser.String:
		fmt.Println(name, v.Value)
	case *parser.Bool:
		fmt.Println(name, v.Value)
	}
}

func main() {
	text, err := os.Open(os.Args[1])
	if err != nil {
		fmt.Fprintln(os.Stderr, err)
		os.Exit(1)
	}
	file, errors := parser.ParseAndEval(os.Args[1], text, parser.NewScope(nil))
	for _, err := range errors {
		fmt.Fprintln(os.Stderr, err)
	}
	for _, definition := range file.Defs {
		if module, isModule := definition.(*parser.Module); isModule {
			name, _ := module.GetProperty("name")
			print(name.Value.Eval().(*parser.String).Value, &module.Map)
		}
	}
	if len(errors) != 0 {
		os.Exit(1)
	}
}
