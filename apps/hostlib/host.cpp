// host library (in progress)
