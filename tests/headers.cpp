// Empty: this library exists only for the precompiled headers of the tests.
