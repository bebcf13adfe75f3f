// The target that compiles the headers of all tests needs a source; it has none of its own.
