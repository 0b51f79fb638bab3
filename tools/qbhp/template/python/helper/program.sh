#!/bin/sh
here=$(dirname "$0")
exec "$here/python3" "$here/../Resources/helper.py"
