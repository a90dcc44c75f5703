// A module without sources of its own still needs one to be a library.
