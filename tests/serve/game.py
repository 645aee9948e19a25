# SPDX-License-Identifier: Apache-2.0
"""A game with the name of the first argument: prints each event that it receives as a line of JSON, until its input ends."""
import json
import sys

import veltra

veltra.update_game_info(1, sys.argv[1])
veltra.register_game_callback(lambda info: print(json.dumps(info), flush=True), 1)
sys.stdin.read()
