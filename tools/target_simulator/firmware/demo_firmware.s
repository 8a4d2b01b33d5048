@ The simulated target's firmware: a sensor loop for a Cortex-M3 (Thumb-2),
@ small enough to read in one sitting. The main loop reads a sensor, filters
@ the sample, sends it over a UART and sleeps until the next SysTick; the
@ UART's interrupt may pre-empt the SysTick handler. It runs as it stands on
@ QEMU's mps2-an385 machine (code at 0, RAM at 0x20000000); the simulator
@ draws its PC samples from these functions.
        .syntax unified
        .cpu cortex-m3
        .thumb

        .section .vectors, "a"
        .global vector_table
vector_table:
        .word   stack_top               @ 0: initial stack pointer
        .word   Reset_Handler           @ 1: reset
        .word   Fault_Handler           @ 2: NMI
        .word   Fault_Handler           @ 3: HardFault
        .word   Fault_Handler           @ 4: MemManage
        .word   Fault_Handler           @ 5: BusFault
        .word   Fault_Handler           @ 6: UsageFault
        .word   0, 0, 0, 0              @ 7-10: reserved
        .word   Fault_Handler           @ 11: SVCall
        .word   Fault_Handler           @ 12: DebugMonitor
        .word   0                       @ 13: reserved
        .word   Fault_Handler           @ 14: PendSV
        .word   SysTick_Handler         @ 15: SysTick
        .word   Fault_Handler           @ 16: IRQ 0
        .word   Fault_Handler           @ 17: IRQ 1
        .word   Fault_Handler           @ 18: IRQ 2
        .word   UART_IRQHandler         @ 19: IRQ 3, the UART

        .text

        .global Reset_Handler
        .type   Reset_Handler, %function
        .thumb_func
Reset_Handler:
        ldr     r0, =0xE000E010         @ SysTick: reload, clear, start
        ldr     r1, =9999
        str     r1, [r0, #4]
        movs    r1, #0
        str     r1, [r0, #8]
        movs    r1, #7
        str     r1, [r0]
        bl      main
        b       .
        .size   Reset_Handler, . - Reset_Handler

        .global main
        .type   main, %function
        .thumb_func
main:
        push    {r4, lr}
        movs    r4, #0
main_loop:
        bl      read_sensor
        bl      filter_sample
        bl      uart_send
        adds    r4, r4, #1
        ldr     r1, =loop_count
        str     r4, [r1]
        bl      idle
        b       main_loop
        .size   main, . - main

        .global read_sensor
        .type   read_sensor, %function
        .thumb_func
read_sensor:
        ldr     r1, =sensor_value
        ldr     r0, [r1]
        adds    r0, r0, #3
        str     r0, [r1]
        bx      lr
        .size   read_sensor, . - read_sensor

        @ A moving average over eight samples.
        .global filter_sample
        .type   filter_sample, %function
        .thumb_func
filter_sample:
        push    {r4, r5}
        ldr     r1, =history
        ldr     r2, =history_index
        ldr     r3, [r2]
        str     r0, [r1, r3, lsl #2]
        adds    r3, r3, #1
        and     r3, r3, #7
        str     r3, [r2]
        movs    r4, #0
        movs    r5, #0
filter_sum:
        ldr     r3, [r1, r5, lsl #2]    @ the hot spot: one load per sample
        add     r4, r4, r3
        adds    r5, r5, #1
        cmp     r5, #8
        bne     filter_sum
filter_done:
        lsrs    r0, r4, #3
        ldr     r1, =filtered
        str     r0, [r1]
        pop     {r4, r5}
        bx      lr
        .size   filter_sample, . - filter_sample

        .global uart_send
        .type   uart_send, %function
        .thumb_func
uart_send:
        ldr     r1, =0x40004000         @ the mps2 UART0 data register
        strb    r0, [r1]
        bx      lr
        .size   uart_send, . - uart_send

        .global idle
        .type   idle, %function
        .thumb_func
idle:
        wfi
        bx      lr
        .size   idle, . - idle

        .global SysTick_Handler
        .type   SysTick_Handler, %function
        .thumb_func
SysTick_Handler:
        ldr     r1, =ticks
        ldr     r0, [r1]
        adds    r0, r0, #1
        str     r0, [r1]
        bx      lr
        .size   SysTick_Handler, . - SysTick_Handler

        .global UART_IRQHandler
        .type   UART_IRQHandler, %function
        .thumb_func
UART_IRQHandler:
        ldr     r1, =uart_interrupts
        ldr     r0, [r1]
        adds    r0, r0, #1
        str     r0, [r1]
        bx      lr
        .size   UART_IRQHandler, . - UART_IRQHandler

        .global Fault_Handler
        .type   Fault_Handler, %function
        .thumb_func
Fault_Handler:
        bkpt    #0
        b       Fault_Handler
        .size   Fault_Handler, . - Fault_Handler

        .ltorg

        .bss
        .align  2
        .global sensor_value, history, history_index, filtered, ticks, uart_interrupts, loop_count
sensor_value:    .space 4
history:         .space 32
history_index:   .space 4
filtered:        .space 4
ticks:           .space 4
uart_interrupts: .space 4
loop_count:      .space 4
