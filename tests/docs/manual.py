#!/usr/bin/env python3
"""Checks a program's manual page and its completion for bash against what its --help says."""
import re
import shutil
import subprocess
import sys
from pathlib import Path

PROGRAM, PAGE, COMPLETION = (Path(argument) for argument in sys.argv[1:])


def output(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=True).stdout


def completed(*words):
    """What bash offers for the last word."""
    script = (f'source "{COMPLETION}"; compopt() {{ :; }}; COMP_WORDS=("$@"); COMP_CWORD=$(($#-1));'
              f'_{PROGRAM.name} "$1" "${{!#}}" "${{@: -2:1}}"; echo "${{COMPREPLY[*]}}"')
    return set(output('bash', '-c', script, 'bash', PROGRAM.name, *words).split())


def main():
    page = PAGE.read_text().replace('\\-', '-')
    help_text = output(PROGRAM, '--help')
    listed = help_text.partition('Commands:\n')[2].partition('\n\n')[0]
    commands = re.findall(r'^  ([\w-]+) ', listed, re.MULTILINE)
    assert completed('') >= set(commands), completed('')
    for command in commands or ['']:
        words = [command] if command else []
        text = output(PROGRAM, *words, '--help')
        options = set(re.findall(r'^  (?:-\w, )?(--[\w-]+)', text, re.MULTILINE))
        assert len(options) > 0 and completed(*words, '--') == options, (command, options)
        for term in re.findall(r'^  (-.*?)(?:  |$)', text, re.MULTILINE):
            assert f'\\fB{term}\\fR' in page, f'the page lacks {term} of {command}'
            value = re.search(r' ([a-z]+\|[a-z|]+)$', term)
            if value:
                offered = completed(*words, term.split()[0], '')
                assert offered == set(value[1].split('|')), (term, offered)
    if shutil.which('groff'):
        complaints = output('groff', '-man', '-Tutf8', '-ww', '-z', PAGE)
        assert not complaints, complaints


main()
