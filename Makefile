# Shorthands for ./dev, which does the work (and needs no make on a fresh machine).
.PHONY: run test build bench deps format
run test build bench deps format:
	./dev $@
