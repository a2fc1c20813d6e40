#!/usr/bin/env python3
"""Compares the shell's configuration readers with an independent reading of the same files.

Generates files from fragments that are good, nearly good and bad, lets the shell's readers dump what
they made of each, works the same out here, and stops at the first difference. The start value is
printed and taken back with --seed; --keep leaves the differing file where it can be looked at.
"""

import argparse
import os
import random
import re
import subprocess
import sys
import tempfile

BUFFER = 512
# Files that one process reads: enough to make its start cheap, few enough for any disk.
BATCH = 2000
WARNING, ERROR = 1, 2


def quote(text):
    return '"' + ''.join(
        chr(b) if 0x20 <= b < 0x7f and b not in b'"\\' else '\\x%02x' % b for b in text) + '"'


def lines_of(data):
    """(number, text) of every line, as a C program with a 512-byte buffer sees them."""
    position = 0
    number = 0
    while position < len(data):
        end = min(position + BUFFER - 1, len(data))
        newline = data.find(b'\n', position, end)
        if newline >= 0:
            end = newline + 1
        text = data[position:end].split(b'\0', 1)[0]
        position = end
        number += 1
        if text.endswith(b'\n'):
            text = text[:-1]
        if text and not text.startswith(b'#'):
            yield number, text


def leading_integer(text):
    match = re.match(rb'[ \t\n\v\f\r]*([+-]?[0-9]+)', text)
    return int(match.group(1)) if match else 0


def neat(text):
    return b' '.join(text.split())


class Report:
    def __init__(self):
        self.out = []

    def error(self, line, message, level=ERROR):
        self.out.append('error %d %d %s' % (line, level, quote(message)))


# --- node.cfg -------------------------------------------------------------------------------------

def node_port(text):
    value = max(-2**63, min(2**63 - 1, leading_integer(text)))
    return value & 0xffffffff


def agent_finding(report, line, name, mac, ip, port):
    kind = port % 4
    if kind == 0:
        report.error(line, b'Can not connect to %s. (%s:%d)' % (name, ip, port), WARNING)
    elif kind == 3 and mac != b'OTHER':
        report.error(line, b'%s: IP(%s) and MAC(%s != OTHER) are not matched!' % (name, ip, mac),
                     WARNING)


def read_node(report, nodes, line, text):
    match = re.match(rb'([^=]*)=([^,]*),([^:]*):(.*)\Z', text, re.S)
    if not match:
        report.error(line, b'Invalid format: ' + text)
        return
    name, mac, ip, rest = match.groups()
    mac = mac.upper()
    port = node_port(rest)
    agent_finding(report, line, name, mac, ip, port)
    if name in nodes:
        report.error(line, b'Error! Node name "%s" has been used.' % name)
    else:
        nodes[name] = (name, mac, ip, port)


def read_group(report, nodes, groups, line, text):
    if b'=' not in text:
        report.error(line, b'Invalid format: ' + text)
        return
    name, members = text.split(b'=', 1)
    if name in nodes:
        report.error(line, b'Group name "%s" is ambiguous. There is already a node named "%s" '
                     b'defined.' % (name, name))
        return
    known = {group[0] for group in groups}
    inner_nodes, inner_groups, complete = [], [], True
    for member in members.split(b','):
        if not member:
            continue
        if member in nodes:
            if member in inner_nodes:
                report.error(line, b'The node %s already exists!' % member)
            else:
                inner_nodes.append(member)
        elif member in known:
            if member in inner_groups:
                report.error(line, b'The group %s already exists!' % member)
            else:
                inner_groups.append(member)
        else:
            report.error(line, b'"%s" is not defined for group "%s".' % (member, name))
            complete = False
    if complete:
        groups.append((name, inner_nodes, inner_groups))


def model_node(data):
    report, nodes, groups, section = Report(), {}, [], None
    for line, text in lines_of(data):
        if text in (b'[node]', b'[group]'):
            section = text
        elif section is None:
            report.error(line, b'Invalid line position: ' + text)
        elif section == b'[node]':
            read_node(report, nodes, line, text)
        else:
            read_group(report, nodes, groups, line, text)
    for name in sorted(nodes):
        _, mac, ip, port = nodes[name]
        report.out.append('node %s %s %s %s %d' %
                          (quote(name), quote(name), quote(mac), quote(ip), port))
    for name, inner_nodes, inner_groups in groups:
        report.out.append('group ' + quote(name) +
                          ''.join(' node ' + quote(n) for n in inner_nodes) +
                          ''.join(' group ' + quote(g) for g in inner_groups))
    return report.out


# --- cmd.cfg --------------------------------------------------------------------------------------

TYPES = [b'BUILTIN', b'BUILTIN_OPT', b'SCRIPT', b'SCRIPT_OPT', b'DLLFUNCTION', b'DLLFUNCTION_OPT']
CONFIRM = {b'NO': 0, b'INHERITANCE': 1, b'ONCE': 2, b'EACH': 3}
DEFAULT_QUESTION = b'Do you really want to execute this command?'
SET_KEYS = (b'name', b'description', b'confirmtype', b'confirmmsg', b'timeout')
CMD_KEYS = SET_KEYS + (b'cmd', b'cmd32', b'cmd64', b'type', b'destination')


def new_block(line):
    return {'line': line, 'commands': [], 'options': [], 'examples': [],
            **{key: b'' for key in CMD_KEYS}}


def collect_blocks(data):
    blocks, section = [], None
    block = command = None
    for line, text in lines_of(data):
        if text == b'[cmdset]':
            section, block, command = 'set', None, None
        elif text == b'[cmd]':
            if section is not None:
                section, command = 'cmd', None
        elif section is not None and b'=' in text:
            key, value = text.split(b'=', 1)
            if section == 'set':
                if block is None:
                    block = new_block(line)
                    blocks.append(block)
                if key in SET_KEYS:
                    block[key] = value
                continue
            if command is None:
                command = new_block(line)
                if block is None:
                    block = new_block(line)
                    blocks.append(block)
                block['commands'].append(command)
            if key == b'example':
                command['examples'].append(value)
            elif key == b'option':
                command['options'].append(value)
            elif key in CMD_KEYS:
                command[key] = value
    return blocks


def time_out(report, line, value):
    number = leading_integer(value)
    if number < 0 or (number == 0 and len(value) > 1):
        report.error(line, b'Invalid time out: ' + value)
        return None
    return min(number, 0xffffffff)


def resolve_option(report, line, piece):
    start, end = piece.find(b'['), piece.find(b']')
    parts = [part.strip() for part in piece[start + 1:end].split(b'|')]
    if start < 0 or end < start or len(parts) != 3:
        report.error(line, b'Invalid format for a command option: ' + piece)
        return None
    short = parts[0][1:] if parts[0].startswith(b'-') else b''
    long = parts[1][2:] if parts[1].startswith(b'--') else b''
    good = True
    if not short and not long:
        report.error(line, b'Invalid format! Short option name:"" and long option name:"" can not '
                     b'both be empty.')
        good = False
    if parts[2] not in (b'00', b'01', b'10', b'11'):
        report.error(line, b'Invalid option attributes:"%s"' % parts[2])
        good = False
    return (short, long, parts[2], piece[end + 1:].strip()) if good else None


def check_command(report, block):
    line = block['line']
    before = len(report.out)
    for key in (b'name', b'description', b'type', b'destination'):
        if not block[key]:
            report.error(line, b'"%s" is not defined for [Cmd].' % key)
    if block[b'type'] not in TYPES:
        report.error(line, b'Invalid "type" for [Cmd]:' + block[b'type'])
    if block[b'destination'] not in (b'MASTER', b'SLAVE'):
        report.error(line, b'Invalid "destination" for [Cmd].')
    given = [b'"%s"' % key for key in (b'cmd64', b'cmd32') if block[key]]
    if block[b'cmd'] and given:
        report.error(line, b', '.join(given) +
                     b' and "cmd" can not be defined at the same time for [Cmd].')
    if not block[b'cmd'] and not given:
        report.error(line, b'None of "cmd", "cmd32" or "cmd64" is defined for [Cmd].')
    limit = time_out(report, line, block[b'timeout'])
    return limit, len(report.out) == before


def build_command(report, block, target):
    line = block['line']
    limit, good = check_command(report, block)
    options = []
    for piece in b';;'.join(block['options']).split(b';;'):
        piece = piece.strip()
        if piece:
            option = resolve_option(report, line, piece)
            if option:
                options.append(option)
    kept = []
    for option in options:
        same = [other for other in kept
                if (option[0] and option[0] == other[0]) or (option[1] and option[1] == other[1])]
        if same:
            report.error(line, b'The option [%s|%s] "%s" already defines the same option!' %
                         (same[0][0], same[0][1], same[0][3]))
        else:
            kept.append(option)
    name = neat(block[b'name'])
    if name in target['commands']:
        report.error(line, name + b' already exists!')
        return
    # A command that is refused is looked at to its end, and left out.
    if good:
        target['commands'][name] = {'block': block, 'options': kept, 'timeout': limit}


def find_parent(report, line, heads, roots):
    level, parent = roots, None
    for head in heads:
        parent = next((candidate for candidate in level if candidate['name'] == head), None)
        if parent is None:
            report.error(line, b'Command set "%s" does not exist!' % head)
            return None
        level = parent['children']
    return parent


def build_set(report, block, roots):
    line, name = block['line'], block[b'name']
    good, parent = True, None
    if not name:
        report.error(line, b'"name" is not defined for [CmdSet].')
        good = False
    elif name.endswith(b'/'):
        report.error(line, b'Invalid command set name definition for [CmdSet]: ' + name)
        good = False
    heads = name.split(b'/')[:-1] if good else []
    if not block[b'description']:
        report.error(line, b'"description" is not defined for [CmdSet].')
        good = False
    if heads:
        parent = find_parent(report, line, heads, roots)
        good = good and parent is not None
    limit = time_out(report, line, block[b'timeout'])
    made = {'name': name.split(b'/')[-1], 'block': block, 'parent': parent, 'children': [],
            'commands': {}, 'timeout': limit or 0} if good else None
    refused = {'commands': {}}
    for command in block['commands']:
        build_command(report, command, made or refused)
    if made is None:
        return
    if parent is None:
        roots.append(made)
    elif any(child['name'] == made['name'] for child in parent['children']):
        report.error(line, b'The command %s already exists!' % made['name'])
    else:
        parent['children'].append(made)


def set_confirmation(made):
    kind = CONFIRM.get(made['block'][b'confirmtype'].upper(), 0)
    if kind in (2, 3):
        return kind, made['block'][b'confirmmsg'] or DEFAULT_QUESTION
    if kind == 1 and made['parent']:
        return set_confirmation(made['parent'])
    return kind, b''


def command_confirmation(block, made):
    kind = CONFIRM.get(block[b'confirmtype'].upper(), 0)
    if kind in (2, 3):
        return kind, block[b'confirmmsg'] or DEFAULT_QUESTION
    return set_confirmation(made) if kind == 1 else (0, b'')


def dump_sets(report, sets, depth):
    for made in sets:
        kind, message = set_confirmation(made)
        report.out.append('set %d %s %s %d %s %d' %
                          (depth, quote(made['name']), quote(made['block'][b'description']), kind,
                           quote(message), made['timeout']))
        for name in sorted(made['commands']):
            command = made['commands'][name]
            block = command['block']
            single = bool(block[b'cmd'])
            kind, message = command_confirmation(block, made)
            report.out.append('command %s %s %s %s %s %d %d %d %s %d' % (
                quote(name), quote(neat(block[b'description'])), quote(neat(block[b'cmd'])),
                quote(b'' if single else neat(block[b'cmd32'])),
                quote(b'' if single else neat(block[b'cmd64'])), TYPES.index(block[b'type']),
                block[b'destination'] == b'SLAVE', kind, quote(message),
                command['timeout'] or made['timeout']))
            report.out += ['example ' + quote(example) for example in block['examples']]
            report.out += ['option %s %s %c %c %s' % (quote(short), quote(long), flags[0], flags[1],
                                                      quote(text))
                           for short, long, flags, text in command['options']]
        dump_sets(report, made['children'], depth + 1)


def model_cmd(data):
    report, roots = Report(), []
    for block in collect_blocks(data):
        build_set(report, block, roots)
    dump_sets(report, roots, 0)
    return report.out


# --- ssl_master.cfg -------------------------------------------------------------------------------

def model_ssl(data):
    report = Report()
    fields = {b'PRIVATE_KEY_FILE': b'', b'PUBLIC_KEY_FILE': b'', b'CERTIFICATE_FILE': b''}
    for _, text in lines_of(data):
        key, equals, value = text.partition(b'=')
        if not equals or not key:
            report.error(0, b'Unknown setting for SSL configuration: ' + text)
        elif key.upper() in fields:
            fields[key.upper()] = value
        else:
            report.error(0, b'Unknown setting for SSL configuration: ' + key.upper())
    report.out.append('ssl ' + ' '.join(quote(value) for value in fields.values()))
    return report.out


MODELS = {'node': model_node, 'cmd': model_cmd, 'ssl': model_ssl}


# --- generated files ------------------------------------------------------------------------------

class Generator:
    def __init__(self, seed):
        self.random = random.Random(seed)

    def pick(self, *choices):
        return self.random.choice(choices)

    def maybe(self, probability):
        return self.random.random() < probability

    def name(self):
        return self.pick(b'n1', b'n2', b'n3', b'N1', b'rack', b'all', b' n1', b'n1 ', b'', b'n\xf6',
                         b'g%d' % self.random.randrange(5))

    def node_line(self):
        return self.pick(
            b'%s=02:00:00:aa:bb:0%d,10.0.0.%d:44%d' %
            (self.name(), self.random.randrange(9), self.random.randrange(9),
             self.random.randrange(9)),
            b'%s=%s,%s:%s' % (self.name(), self.pick(b'OTHER', b'other', b'', b'a=b'),
                              self.pick(b'host', b'', b' x '),
                              self.pick(b'', b'7', b'12x', b'-1', b'+3', b' 8', b'99999999999999999999',
                                        b'4294967299')))

    def group_line(self):
        return self.name() + b'=' + b','.join(
            self.name() for _ in range(self.random.randrange(4)))

    def node_file(self):
        result = [b'[node]'] if self.maybe(0.7) else []
        for _ in range(self.random.randrange(25)):
            result.append(self.pick(b'[node]', b'[group]', b'# x', b'', self.junk()) if
                          self.maybe(0.25) else self.pick(self.node_line(), self.group_line()))
        return result

    def option(self):
        return self.pick(b'[-f|--force|00]do it', b'[-f||01]', b'[|--long|10] x ', b'[f|force|01]',
                         b'[-f|--force|2]', b'[|--|00]', b'[-a|--b|11]x;;[-c|--d|00]', b'nothing',
                         b']x[', b'', b';;', b'[-x|-y|0a]', b'[ -q | --quiet | 01 ] [1|2]',
                         b'[-f|--force|00|1]', b'[--f|--g|00]')

    def time_out(self):
        return self.pick(b'', b'0', b'5', b'x', b'00', b'007', b'12s', b'-5', b'-0', b'+9', b' 3',
                         b'abc', b'4294967295', b'4294967296', b'99999999999999999999')

    def setting(self, command):
        key = self.pick(*(CMD_KEYS + (b'example', b'option') if command else SET_KEYS))
        values = {
            b'name': (b'a', b'b', b'a/b', b'a/b/c', b'a/', b'/a', b'c  d', b'', b'BASIC', b'x/y', b'c'),
            b'description': (b'text', b' two  words ', b''),
            b'confirmtype': (b'NO', b'once', b'Each', b'INHERITANCE', b'perhaps', b''),
            b'confirmmsg': (b'Sure?', b''),
            b'type': tuple(TYPES) + (b'script', b'', b'OTHER'),
            b'destination': (b'MASTER', b'SLAVE', b'slave', b''),
        }
        if key == b'timeout':
            value = self.time_out()
        elif key == b'option':
            value = self.option()
        else:
            value = self.pick(*values.get(key, (b'run it', b'', b'a=b', b' x  y ')))
        return key + self.pick(b'=', b'=', b'=', b'=', b' = ') + value

    def good_command(self):
        return [b'[cmd]', b'name=' + self.pick(b'c1', b'c2', b'c3'), b'description=d',
                b'type=' + self.pick(*TYPES), b'destination=' + self.pick(b'MASTER', b'SLAVE'),
                self.pick(b'cmd=run', b'cmd32=run32', b'cmd64=run64')]

    def cmd_file(self):
        result = []
        for _ in range(self.random.randrange(8)):
            if self.maybe(0.8):
                result.append(b'[cmdset]')
            if self.maybe(0.8):
                result += [b'name=' + self.pick(b'a', b'b', b'a/b', b'a/b/c', b'b/a'),
                           b'description=d']
            result += [self.setting(False) for _ in range(self.random.randrange(3))]
            for _ in range(self.random.randrange(3)):
                result += self.good_command() if self.maybe(0.7) else [b'[cmd]']
                result += [self.setting(True) for _ in range(self.random.randrange(4))]
            if self.maybe(0.2):
                result.append(self.junk())
        return result

    def ssl_file(self):
        return [self.junk() if self.maybe(0.2) else
                self.pick(b'PRIVATE_KEY_FILE', b'public_key_file', b'Certificate_File', b'', b'OTHER',
                          b' CERTIFICATE_FILE') + self.pick(b'=', b' = ', b'') +
                self.pick(b'/a', b'', b' /b ', b'=c') for _ in range(self.random.randrange(8))]

    def junk(self):
        return self.pick(
            b'junk', b'=', b'==', b',:', b'#comment', b' # no comment', b'\r', b'a\0b', b'\0',
            b'[node]\r', b'[cmd] ', bytes(self.random.randrange(256) for _ in range(40)),
            b'k=' + b'v' * self.pick(508, 509, 510, 511, 1021, 1022, 1023) + b'n1=M,i:5',
            b'#' * self.pick(510, 511, 512) + b'[node]')

    def file(self, kind):
        text = self.pick(b'\n', b'\n', b'\n', b'\n', b'\n', b'\r\n').join(
            getattr(self, kind + '_file')())
        return text + self.pick(b'\n', b'\n', b'')


def compare_generated(program, generator, first, count):
    """Compares on so many new files, the first of which has the given number."""
    with tempfile.TemporaryDirectory() as directory:
        files = []
        for index in range(first, first + count):
            kind = list(MODELS)[index % len(MODELS)]
            name = os.path.join(directory, '%d.%s.cfg' % (index, kind))
            with open(name, 'wb') as stream:
                stream.write(generator.file(kind))
            files.append((kind, name))
        return compare(program, files)


def compare(program, files):
    """files: list of (kind, name). Returns the first file that differs: its name, its content and
    both readings."""
    requests = ''.join('%s\t%s\n' % entry for entry in files)
    run = subprocess.run([program], input=requests.encode(), stdout=subprocess.PIPE, check=False,
                         env={**os.environ, 'KELSH_PATH': ''})
    answers = run.stdout.decode('ascii').splitlines()
    position = 0
    for kind, name in files:
        with open(name, 'rb') as stream:
            data = stream.read()
        expected = MODELS[kind](data)
        if answers[position:position + 1] != ['file ' + name]:
            return name, data, ['(an answer)'], answers[position:position + 1]
        position += 1
        end = position
        while end < len(answers) and not answers[end].startswith('file '):
            end += 1
        if answers[position:end] != expected:
            return name, data, expected, answers[position:end]
        position = end
    if run.returncode != 0:
        return '(the program)', b'', ['exit status 0'], ['exit status %d' % run.returncode]
    return None


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--program', required=True, help='the program that dumps what it reads')
    parser.add_argument('--samples', help='directory with files named *.node.cfg and so on')
    parser.add_argument('--count', type=int, default=int(os.environ.get('KELSH_CONFIG_FILES', 3000)),
                        help='files to generate (KELSH_CONFIG_FILES)')
    parser.add_argument('--seed', type=int, default=random.SystemRandom().randrange(2**32))
    parser.add_argument('--keep', help='where to put a file that is read differently')
    options = parser.parse_args()
    print('start value: --seed %d' % options.seed)
    generator = Generator(options.seed)
    samples = [(kind, os.path.join(options.samples, name)) for kind in MODELS
               for name in sorted(os.listdir(options.samples) if options.samples else [])
               if name.endswith('.%s.cfg' % kind)]
    difference = compare(options.program, samples)
    compared = len(samples)
    for first in range(0, options.count, BATCH):
        if difference is not None:
            break
        count = min(BATCH, options.count - first)
        difference = compare_generated(options.program, generator, first, count)
        compared += count
    if difference is None:
        print('%d files are read alike' % compared)
        return 0
    name, data, expected, found = difference
    print('%s is read differently:' % name)
    for number, line in enumerate(data.split(b'\n'), 1):
        print('%5d %s' % (number, quote(line)))
    print('expected:', *expected, sep='\n  ')
    print('found:', *found, sep='\n  ')
    if options.keep:
        with open(options.keep, 'wb') as stream:
            stream.write(data)
    return 1


if __name__ == '__main__':
    sys.exit(main())
