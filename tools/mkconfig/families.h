// Default uci packages of each module family, written by tools/mkconfig into
// a fresh configuration directory. Each writer owns the packages of its
// family's modules; 0 on success, -1 on failure.
#pragma once

int mkconfig_write_event(const char *confdir, int channels);
int mkconfig_write_chm(const char *confdir, int channels);
int mkconfig_write_network(const char *confdir, int channels);
int mkconfig_write_system(const char *confdir, int channels);
int mkconfig_write_video(const char *confdir, int channels);
