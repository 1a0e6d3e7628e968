// Nothing: this library is only there for the headers that it compiles for the tests.
