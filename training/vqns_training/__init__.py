"""Training, exporting and evaluating the network that the library compiles in."""
