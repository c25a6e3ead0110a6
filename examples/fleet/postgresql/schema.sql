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
alter role ov_reader set default_transaction_read_only = on;
alter role ov_reader set statement_timeout = '30s';
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
-- number keeps their order.
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
    line text not null
) partition by range (received);

-- Takes the lines of days without a partition, so that none is refused.
create table if not exists event_lines_other partition of event_lines default;

create index if not exists event_lines_host on event_lines (host, received);
create index if not exists event_lines_heartbeat on event_lines (host, received) include (number, values)
    where id = 'sys03' and length(values) < 10;
-- All but the many heartbeats: the first one tells of a boot.
create index if not exists event_lines_state on event_lines (id, host, received)
    where id <> 'sys03' or values = '1';

grant insert on event_lines to ov_writer;

-- `at` has neither year nor zone: the year nearest to the time of receipt, and UTC. Null if `at` is no
-- such time, as with months that are not English.
create or replace function sent_at(at text, received timestamptz) returns timestamptz
language plpgsql stable parallel safe as $$
declare
    months constant text = 'JanFebMarAprMayJunJulAugSepOctNovDec';
    months_before constant integer = (strpos(months, left(at, 3)) - 1) / 3;
    day constant integer = substr(at, 5, 2);
    clock constant interval = substr(at, 8);
    year integer = extract(year from received at time zone 'UTC');
    start timestamp;
begin
    if at !~ '^[A-Z][a-z][a-z] [ 0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]$' then
        return null;
    end if;
    start = make_date(year, months_before + 1, 1);
    year = year + case when received - start at time zone 'UTC' > interval '183 days' then 1
                       when received - start at time zone 'UTC' < interval '-183 days' then -1
                       else 0 end;
    return (make_date(year, months_before + 1, day) + clock) at time zone 'UTC';
exception
    when data_exception then
        return null;
end $$;

create or replace view events as
    select received, sent_at(at, received) as sent, sender, host, address, id, description, values,
        severity, facility, at, relay, line, number
    from event_lines;

-- One index look-up for each machine, instead of a look at all lines.
create or replace view machines as
    with recursive machine(host) as (
        select min(host) from event_lines where host > ''
        union all
        select (select min(host) from event_lines where host > machine.host)
        from machine where machine.host is not null
    )
    select host from machine where host is not null;

create or replace view last_word as
    select last.*
    from machines cross join lateral (
        select host, received, sender, relay, address, id, description, values, severity
        from event_lines
        where event_lines.host = machines.host
        order by event_lines.received desc, number desc limit 1
    ) last;

-- Machines with a heartbeat that say nothing for two intervals, and did not say that they shut down.
create or replace view silent_machines as
    select host, received as last_received, now() - received as silent_for, id as last_id, sender, relay
    from last_word
    where received < now() - 2 * (select heartbeat from fleet_settings)
        and (select max(received) from event_lines
             where host = last_word.host and id = 'sys03' and length(values) < 10)
            > coalesce((select max(received) from event_lines
                        where host = last_word.host and id = 'sys02'), '-infinity');

-- Gaps in the numbers of the heartbeats of the last 24 hours: how many heartbeats were lost. The number
-- begins with 1 at each boot. A heartbeat that comes twice counts once.
create or replace view lost_lines as
    select host, sum(lost) as lost, count(*) as heartbeats,
        max(received) filter (where lost > 0) as last_lost
    from (
        select host, received,
            case when number > before then number - before - 1
                 when number < before then number - 1
                 else 0 end as lost
        from (
            select host, received, number, lag(number) over (partition by host order by received) as before
            from (
                select host, received,
                    case when translate(values, '0123456789', '') = '' and values <> ''
                        then values::integer end as number
                from event_lines
                where id = 'sys03' and length(values) < 10 and host > ''
                    and received > now() - interval '24 hours'
            ) heartbeats
            where number > 0
        ) numbers
    ) gaps
    group by host
    having sum(lost) > 0;

-- The last boot of each machine, by its boot event or its first heartbeat. What the machine reports as it
-- boots may come up to a minute before: the first heartbeat is delayed.
create or replace view last_boot as
    select host, max(received) - interval '1 min' as received
    from event_lines
    where (id = 'sys01' or (id = 'sys03' and values = '1')) and host > ''
    group by host;

create or replace view disconnected_machines as
    select host, received as since, values as status, sender, relay
    from (
        select distinct on (host) host, received, id, values, sender, relay
        from event_lines
        where id in ('net02', 'net03') and host > ''
        order by host, received desc, number desc
    ) last
    where id = 'net03';

-- No event tells that room was made: a machine stays here until it boots.
create or replace view full_disks as
    select host, last.received as since, values, sender, relay
    from (
        select distinct on (host) host, received, values, sender, relay
        from event_lines
        where id = 'perf03' and host > ''
        order by host, received desc, number desc
    ) last
    left join last_boot using (host)
    where last_boot.received is null or last.received >= last_boot.received;

-- No event tells that a user signed out: a user stays here until the next sign-in, shutdown or boot.
create or replace view signed_in as
    select host, last.received as since, values as user_name, sender, relay
    from (
        select distinct on (host) host, received, id, values, sender, relay
        from event_lines
        where id in ('sec03', 'sec04', 'sys02') and host > ''
        order by host, received desc, number desc
    ) last
    left join last_boot using (host)
    where id = 'sec03' and (last_boot.received is null or last.received >= last_boot.received);

create or replace view unknown_usb_devices as
    select host, last.received as since, values as device, sender, relay
    from (
        select distinct on (host, values) host, received, id, values, sender, relay
        from event_lines
        where id in ('sys05', 'sys06', 'sys07') and host > ''
        order by host, values, received desc, number desc
    ) last
    left join last_boot using (host)
    where id <> 'sys07' and (last_boot.received is null or last.received >= last_boot.received)
        and not exists (select from known_usb_devices where device = lower(split_part(values, ' ', 1)));

create or replace view frequent_events as
    select id, severity, sum(lines)::bigint as lines, count(distinct host) as machines,
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

grant select on events, last_word, silent_machines, lost_lines, disconnected_machines, full_disks,
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
end $$;
revoke execute on function keep_days() from public;
do $$ begin perform keep_days(); end $$;

commit;
