-- The database of the centre. As the user postgres of the centre:
--
--   createdb --template=template0 --encoding=UTF8 --locale=C.UTF-8 ov_events
--   psql --dbname=ov_events --file=schema.sql
--
-- May be run again: tables keep their rows, functions and views are replaced.

\set ON_ERROR_STOP on
set client_min_messages = warning;
begin;

-- Roles without passwords: pg_hba.conf says who on the centre may be which.
do $$
declare
    name text;
begin
    foreach name in array array['ov_owner', 'ov_writer', 'ov_reader'] loop
        if not exists (select from pg_roles where rolname = name) then
            execute format('create role %I', name);
        end if;
    end loop;
    execute format('revoke all on database %I from public', current_database());
    execute format('grant connect on database %I to ov_owner, ov_writer, ov_reader', current_database());
end $$;
alter role ov_owner login;
alter role ov_writer login;
alter role ov_reader login;
-- A power cut of the centre may cost the last second; to wait for the disk after each line is slow.
alter role ov_writer set synchronous_commit = off;
alter role ov_reader set default_transaction_read_only = on;
alter role ov_reader set statement_timeout = '30s';
-- To compile the views takes longer than to run them.
alter role ov_reader set jit = off;
grant create, usage on schema public to ov_owner;
grant usage on schema public to ov_writer, ov_reader;
set local role ov_owner;

-- One row; the administrator may change it.
create table if not exists fleet_settings (
    one boolean primary key default true check (one),
    -- Interval of the heartbeat with its random delay.
    heartbeat interval not null default '5 min 30 s',
    -- Lines are kept for this many days.
    days_kept integer not null default 30 check (days_kept > 0)
);
insert into fleet_settings default values on conflict do nothing;

-- The administrator fills this: vendor and product number of each device that the site allows.
create table if not exists known_usb_devices (
    device text primary key check (device ~ '^[0-9a-f]{4}:[0-9a-f]{4}$'),
    note text not null default ''
);

-- One row for each line. A field that the line does not have is empty. `line` is the whole of a line of
-- another form, and empty otherwise. Lines that come in one piece have the same time of receipt; the
-- number keeps their order. `lost` counts the heartbeats that are missing before this one, or is -1 for one
-- that comes late. The key is the relay's: a line that comes twice is stored once.
create table if not exists event_lines (
    number bigint generated always as identity,
    received timestamptz not null,
    sender text not null,
    host text not null,
    address text not null,
    id text not null,
    description text not null,
    values text not null,
    severity text not null,
    facility text not null,
    at text not null,
    relay text not null,
    line text not null,
    lost integer not null default 0,
    key uuid not null default gen_random_uuid(),
    unique (received, key)
) partition by range (received);

-- Takes the lines of days without a partition, so that none is refused.
create table if not exists event_lines_other partition of event_lines default;

create index if not exists event_lines_host on event_lines (host, received);
create index if not exists event_lines_lost on event_lines (received) where lost <> 0;

-- What the database refused, with the reason.
create table if not exists refused_lines (
    received timestamptz not null default now(),
    reason text not null,
    relay text not null,
    event text not null
);

grant insert (received, sender, host, address, id, description, values, severity, facility, at, relay, line, key)
    on event_lines to ov_writer;
grant insert on refused_lines to ov_writer;

-- The last line of each machine on each topic, kept by a trigger: to look for it among ten million lines
-- takes seconds.
create table if not exists machine_states (
    host text not null,
    topic text not null,
    received timestamptz not null,
    number bigint not null,
    id text not null,
    sender text not null,
    address text not null,
    description text not null,
    values text not null,
    severity text not null,
    relay text not null,
    -- The number in a heartbeat.
    beats integer,
    primary key (host, topic)
) with (fillfactor = 50);

create or replace function note_state() returns trigger
language plpgsql security definer set search_path = public, pg_temp as $$
declare
    topics constant text[] = case
        when new.id = 'sys03' and new.values = '1' then array['heartbeat', 'boot']
        when new.id = 'sys03' then array['heartbeat']
        when new.id = 'sys01' then array['boot']
        when new.id = 'sys02' then array['shutdown']
        when new.id in ('net02', 'net03') then array['connection']
        when new.id in ('sec03', 'sec04') then array['user']
        when new.id = 'perf03' then array['disk']
        when new.id in ('sys05', 'sys06', 'sys07') then array['usb ' || left(new.values, 127)]
        else array['other'] end;
    topic text;
    beat integer;
    last_beat integer;
    last_received timestamptz;
begin
    -- The number of the heartbeat begins with 1 at each boot. A heartbeat may come twice. After an outage
    -- rsyslog sends the lines in its memory and those on its disk at a time: a heartbeat that comes late was
    -- counted as missing. No machine boots within ten seconds.
    if new.id = 'sys03' and length(new.values) between 1 and 9
            and translate(new.values, '0123456789', '') = '' then
        beat = new.values;
        select beats, s.received into last_beat, last_received from machine_states s
            where s.host = new.host and s.topic = 'heartbeat' for update;
        new.lost = case when beat < last_beat and new.received < last_received + interval '10 s' then -1
                        when new.received < last_received then 0
                        when beat > last_beat then beat - last_beat - 1
                        when beat < last_beat then beat - 1
                        else 0 end;
    end if;
    foreach topic in array topics loop
        continue when topic = 'heartbeat' and new.lost < 0;
        insert into machine_states
        values (new.host, topic, new.received, new.number, new.id, new.sender, new.address,
            new.description, new.values, new.severity, new.relay, beat)
        on conflict on constraint machine_states_pkey do update set received = excluded.received,
            number = excluded.number, id = excluded.id, sender = excluded.sender,
            address = excluded.address, description = excluded.description, values = excluded.values,
            severity = excluded.severity, relay = excluded.relay, beats = excluded.beats
        where (machine_states.received, machine_states.number) < (excluded.received, excluded.number);
    end loop;
    return new;
end $$;
create or replace trigger note_state before insert on event_lines
    for each row when (new.host > '') execute function note_state();

-- What rsyslog calls. rsyslog drops a line whose statement fails, but repeats it when the connection ends:
-- so this function sets a bad line aside, and ends the connection when it is not the line's fault, as with a
-- full disk.
create or replace function store_line(event text, relay text) returns void language plpgsql as $$
begin
    insert into event_lines (received, sender, host, address, id, description, values, severity, facility,
        at, relay, line, key)
    select received, sender, coalesce(host, ''), coalesce(address, ''), coalesce(id, ''),
        coalesce(description, ''), coalesce(values, ''), coalesce(severity, ''), coalesce(facility, ''),
        coalesce(at, ''), store_line.relay, coalesce(line, ''), key
    from json_to_record(event::json) as fields (received timestamptz, sender text, host text, address text,
        id text, description text, values text, severity text, facility text, at text, line text, key uuid)
    on conflict do nothing;
exception
    when data_exception or integrity_constraint_violation or program_limit_exceeded then
        insert into refused_lines (reason, relay, event) values (sqlerrm, relay, event);
    when others then
        raise warning 'not stored: %', sqlerrm;
        perform pg_terminate_backend(pg_backend_pid()), pg_sleep(1);
end $$;
revoke execute on function store_line from public;
grant execute on function store_line to ov_writer;

-- `at` has neither year nor zone: the year nearest to the time of receipt, and UTC. Null if `at` is no
-- such time, as with months that are not English.
create or replace function sent_at(at text, received timestamptz) returns timestamptz
language plpgsql immutable strict parallel safe as $$
declare
    -- 0 for what is no month.
    month constant integer = (strpos('JanFebMarAprMayJunJulAugSepOctNovDec', left(at, 3)) + 2) / 3;
    received_utc constant timestamp = received at time zone 'UTC';
    year integer = extract(year from received_utc);
    sent timestamp;
begin
    if month = 0 or at !~ '^[A-Z][a-z][a-z] [ 0-3][0-9] ([01][0-9]|2[0-3]):[0-5][0-9]:[0-5][0-9]$' then
        return null;
    end if;
    year = year + case when received_utc - make_date(year, month, 15) > interval '183 days' then 1
                       when received_utc - make_date(year, month, 15) < interval '-183 days' then -1
                       else 0 end;
    sent = make_date(year, month, 1) + (substr(at, 5, 2)::integer - 1) + substr(at, 8)::time;
    -- There is no February 30th.
    return case when extract(month from sent) = month then sent at time zone 'UTC' end;
end $$;

create or replace view events as
    select received, sent_at(at, received) as sent, sender, host, address, id, description, values,
        severity, facility, at, relay, line, number
    from event_lines;

create or replace view last_word as
    select distinct on (host) host, received, sender, relay, address, id, description, values, severity
    from machine_states
    order by host, received desc, number desc;

-- Machines with a heartbeat that say nothing for two intervals, and did not say that they shut down.
create or replace view silent_machines as
    select last.host, last.received as last_received, now() - last.received as silent_for, last.id as last_id,
        last.sender, last.relay
    from last_word last
    join machine_states heartbeat using (host)
    left join machine_states shutdown on shutdown.host = last.host and shutdown.topic = 'shutdown'
    where heartbeat.topic = 'heartbeat'
        and last.received < now() - 2 * (select heartbeat from fleet_settings)
        and (shutdown is null
            or (shutdown.received, shutdown.number) < (heartbeat.received, heartbeat.number));

-- Heartbeats of the last 24 hours that were lost, by the gaps in their numbers.
create or replace view lost_lines as
    select host, sum(lost) as lost, count(*) filter (where lost > 0) as gaps,
        max(received) filter (where lost > 0) as last_gap
    from event_lines
    where lost <> 0 and received > now() - interval '24 hours'
    group by host
    having sum(lost) > 0;

create or replace view disconnected_machines as
    select host, received as since, values as status, sender, relay
    from machine_states
    where topic = 'connection' and id = 'net03';

-- What a machine reported before its last boot no longer holds. The first line of a boot may be the first
-- heartbeat, which has a delay: what came up to a minute before is of the same boot.
create or replace view states_since_boot as
    select state.*
    from machine_states state
    left join machine_states boot on boot.host = state.host and boot.topic = 'boot'
    where boot is null or state.received >= boot.received - interval '1 min';

-- No event tells that room was made: a machine stays here until it boots.
create or replace view full_disks as
    select host, received as since, values, sender, relay
    from states_since_boot
    where topic = 'disk';

-- No event tells that a user signed out: a user stays here until the next sign-in, shutdown or boot.
create or replace view signed_in as
    select state.host, state.received as since, state.values as user_name, state.sender, state.relay
    from states_since_boot state
    left join machine_states shutdown on shutdown.host = state.host and shutdown.topic = 'shutdown'
    where state.topic = 'user' and state.id = 'sec03'
        and (shutdown is null or (shutdown.received, shutdown.number) < (state.received, state.number));

create or replace view unknown_usb_devices as
    select host, received as since, values as device, sender, relay
    from states_since_boot
    where id in ('sys05', 'sys06')
        and not exists (select from known_usb_devices where device = lower(split_part(values, ' ', 1)));

create or replace view frequent_events as
    select id, severity, sum(lines)::bigint as lines, count(*) as machines,
        max(received) as last_received
    from (
        select id, severity, host, count(*) as lines, max(received) as received
        from event_lines
        where line = '' and received > now() - interval '24 hours'
        group by id, severity, host
    ) by_host
    group by id, severity
    order by lines desc, id, severity
    limit 100;

create or replace view events_by_hour as
    select date_trunc('hour', received) as hour, severity, count(*) as lines
    from event_lines
    where received > date_trunc('hour', now()) - interval '23 hours'
    group by 1, 2;

create or replace view relays as
    select relay, max(received) as last_received, count(*) as machines
    from last_word
    group by relay;

create or replace view refused as select * from refused_lines;

grant select on events, refused, last_word, silent_machines, lost_lines, disconnected_machines, full_disks,
    signed_in, unknown_usb_devices, frequent_events, events_by_hour, relays to ov_reader;

-- Makes the partitions of yesterday, today and the next seven days, and of the days of lines that no
-- partition took; drops what is older than fleet_settings.days_kept. Call it daily. Lines wait meanwhile.
create or replace function keep_days() returns void
language plpgsql set timezone = 'UTC' set lock_timeout = '1 min' as $$
declare
    oldest constant date = current_date - (select days_kept from fleet_settings);
    newest constant date = current_date + 7;
    day date;
    name text;
begin
    lock table event_lines in share row exclusive mode;
    for day in
        select generate_series(current_date - 1, newest, '1 day')
        union select distinct received::date from event_lines_other
            where received >= oldest and received < newest + 1
    loop
        name = 'event_lines_' || to_char(day, 'YYYYMMDD');
        continue when to_regclass(name) is not null;
        execute format('create table %I (like event_lines including defaults including generated)', name);
        execute format('with moved as (delete from event_lines_other where received >= %L
            and received < %L returning *) insert into %I select * from moved', day, day + 1, name);
        execute format('alter table event_lines attach partition %I for values from (%L) to (%L)',
            name, day, day + 1);
    end loop;
    for name in
        select relname from pg_inherits join pg_class on pg_class.oid = inhrelid
        where inhparent = 'event_lines'::regclass and relname ~ '^event_lines_[0-9]{8}$'
            and relname < 'event_lines_' || to_char(oldest, 'YYYYMMDD')
    loop
        execute format('drop table %I', name);
    end loop;
    delete from event_lines_other where received < oldest;
    delete from machine_states where received < oldest;
    delete from refused_lines where received < oldest;
end $$;
do $$ begin perform keep_days(); end $$;

commit;
