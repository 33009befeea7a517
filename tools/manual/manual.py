#!/usr/bin/env python3
"""Makes a program's manual page and its completion for bash from what its --help says."""
import argparse
import gzip
import re
import subprocess
from pathlib import Path


class Help:
    """What --help of a program, or of one of its commands, says."""

    def __init__(self, *command):
        done = subprocess.run([*command, '--help'], stdout=subprocess.PIPE, text=True, check=True)
        self.sections, title = {'': []}, ''
        for line in done.stdout.removeprefix('Usage: ').splitlines():
            heading = re.fullmatch(r'([A-Z][a-z]+):|(Exit status):(?: (.+))?', line)
            if heading:
                title = heading[1] or heading[2]
                self.sections[title] = [heading[3]] if heading[3] else []
            else:
                self.sections[title].append(line)
        self.usage, *self.description = self.sections.pop('')
        first = re.split(r'[.:](?:\s|$)', ' '.join(self.description).strip())[0]
        self.summary = first[:1].lower() + first[1:]

    def entries(self, title):
        """The entries of a section: a term and what it means."""
        entries = []
        for line in self.sections.get(title, []):
            start = re.fullmatch(r'  (\S.*?)(?:  +(\S.*))?', line)
            if start:
                entries.append((start[1], [start[2]] if start[2] else []))
            elif entries and line.startswith('   '):
                entries[-1][1].append(line.strip())
        return [(term, ' '.join(meaning)) for term, meaning in entries]

    def options(self):
        """The long options and what stands for their values, empty for a switch."""
        found = (re.search(r'(--[\w-]+) ?(.*)', term) for term, _ in self.entries('Options'))
        return {option[1]: option[2] for option in found}


def roff(text):
    text = text.replace('\\', '\\e').replace('-', '\\-')
    return '\\&' + text if text[:1] in ('.', "'") else text


def body(text_help, heading):
    """A help text as roff; headings of its sections are made by the function given."""
    lines = []
    for line in text_help.description:
        lines += ['.PP' if not line else f'.br\n{roff(line)}' if line[0] == '{' else roff(line)]
    for title in text_help.sections:
        lines.append(heading(title))
        for term, meaning in text_help.entries(title):
            if title in ('Examples', 'Exit status'):
                lines += [f'.PP\n.EX\n{roff(term)}\n.EE'] if title == 'Examples' else [roff(term)]
            else:
                lines += ['.TP', f'\\fB{roff(term)}\\fR', roff(meaning)]
        prose = [line for line in text_help.sections[title] if line[:1] not in ('', ' ')]
        lines += ['.PP', *map(roff, prose)] if prose else []
    return lines


def page(name, version, program, commands):
    def section(title):
        return f'.SH {title.upper()}'

    lines = [f'.TH {name.upper()} 1 "" "{version}" "ZVUpdate"', '.ad l', '.nh', section('Name'),
             f'{roff(name)} \\- {roff(program.summary)}', section('Synopsis'), roff(program.usage),
             section('Description'), *body(program, section)]
    for command, text_help in commands.items():
        lines += [section(f'{name} {command}'), f'\\fB{roff(text_help.usage)}\\fR',
                  *body(text_help, lambda title: f'.PP\n\\fI{title}\\fR\n.PP')]
    return '\n'.join(lines) + '\n'


def completion(name, commands):
    """Completes the options of each command, or of "" where there are none, and their values."""
    reply, cases = f'_{name}_reply', []
    for command, text_help in commands.items():
        for option, value in text_help.options().items():
            if value in ('DIR', 'FILE'):
                how = f'compopt -o filenames; {reply} -{value[0].lower()} -- "$2" ;;'
            elif re.fullmatch(r'[a-z|]+', value):
                how = f'{reply} -W "{value.replace("|", " ")}" -- "$2" ;;'
            else:
                how = ';;'
            if value:
                cases.append(f'    "{command} {option}") {how}')
        files = ' -f' if text_help.usage.endswith(' FILE') else ''
        options = ' '.join(text_help.options())
        cases.append(f'    "{command} "*) {reply}{files} -W "{options}" -- "$2" ;;')
    if '' not in commands:
        cases.append(f'    *) {reply} -W "{" ".join(commands)} --help --version" -- "$2" ;;')
    command = '' if '' in commands else '${COMP_WORDS[1]}'
    return '\n'.join([
        f'# Completion of {name} for bash.', f'{reply}()', '{',
        '    mapfile -t COMPREPLY < <(compgen "$@")', '}', f'_{name}()', '{',
        f'    local command={command}', '    ((COMP_CWORD > 1)) || command=',
        '    case "$command $3" in', *cases, '    esac', '}', f'complete -F _{name} {name}', ''])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('program', type=Path)
    parser.add_argument('page', type=Path, help='compressed if its name ends in .gz')
    parser.add_argument('completion', type=Path)
    arguments = parser.parse_args()
    name = arguments.program.name
    version = subprocess.run([arguments.program, '--version'], stdout=subprocess.PIPE, text=True,
                             check=True).stdout.strip()
    program = Help(arguments.program)
    commands = {command: Help(arguments.program, command)
                for command, _ in program.entries('Commands')}
    data = page(name, version, program, commands).encode()
    compressed = arguments.page.suffix == '.gz'
    arguments.page.write_bytes(gzip.compress(data, mtime=0) if compressed else data)
    arguments.completion.write_text(completion(name, commands or {'': program}))


if __name__ == '__main__':
    main()
